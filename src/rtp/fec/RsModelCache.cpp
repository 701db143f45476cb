// The cache of Reed-Solomon models, shared by all threads without a lock.
//
// Users are counted, and each time that the cache is emptied a new generation begins; one atomic word holds
// both. A model belongs to the generation in which it was made, and only models of the current one are found.
// So the thread that empties the cache frees the models of older generations at its leisure: nobody can get
// them any more, and their users are gone.

#include <talrtp/RsFec.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace talrtp {

namespace {

constexpr int kMaxTotal = 256;                                     // the largest n
constexpr std::uint32_t kPairs = kMaxTotal * (kMaxTotal + 1) / 2;  // all (k, n) that have a model
constexpr std::uint32_t kSlots = 2 * kPairs;  // one generation may fill up while another one is freed
constexpr std::uint32_t kNoSlot = 0;          // they are numbered from 1

// Two halves that change in one step. The upper one tells a value from an equal one of earlier.
typedef std::uint64_t Word;

constexpr Word makeWord(std::uint32_t upper, std::uint32_t lower) {
    return static_cast<Word>(upper) << 32 | lower;
}

constexpr std::uint32_t upperOf(Word word) {
    return static_cast<std::uint32_t>(word >> 32);
}

constexpr std::uint32_t lowerOf(Word word) {
    return static_cast<std::uint32_t>(word);
}

// A place for one model. Places are never freed, so a thread that is late may look into any of them.
struct stSlot {
    std::atomic<rs_param_*> model;
    std::atomic<std::uint32_t> next;  // in one of the lists below
    std::uint32_t generation;
};

// Constant-initialized and never destroyed: sessions may come before the constructors of static objects and
// outlive their destructors.
stSlot s_slots[kSlots + 1];

// A stack of slots. The upper half of its head counts the changes, so that a slot which was taken and
// returned meanwhile is not mistaken for one that stayed.
class CSlotStack {
public:
    void push(std::uint32_t slot) {
        Word head = m_head.load(std::memory_order_relaxed);
        do {
            s_slots[slot].next.store(lowerOf(head), std::memory_order_relaxed);
        } while (!change(head, slot));
    }
    // Returns kNoSlot when there is none.
    std::uint32_t pop() {
        Word head = m_head.load(std::memory_order_acquire);
        while (lowerOf(head) != kNoSlot &&
               !change(head, s_slots[lowerOf(head)].next.load(std::memory_order_relaxed))) {
        }
        return lowerOf(head);
    }
    // Returns the first of all slots, linked by `next`.
    std::uint32_t takeAll() {
        Word head = m_head.load(std::memory_order_acquire);
        while (lowerOf(head) != kNoSlot && !change(head, kNoSlot)) {
        }
        return lowerOf(head);
    }

private:
    bool change(Word& head, std::uint32_t first) {
        return m_head.compare_exchange_weak(head, makeWord(upperOf(head) + 1, first),
                                            std::memory_order_acq_rel, std::memory_order_acquire);
    }

    std::atomic<Word> m_head{0};
};

std::atomic<Word> s_rsRetainCount{0};     // generation and number of users
std::atomic<Word> s_rsModelMap[kPairs];   // generation and slot of the model of each (k, n)
std::atomic<std::uint32_t> s_touched{0};  // slots that were in use at some time
CSlotStack s_free;                        // those of them that are not now
CSlotStack s_filled;                      // and those that hold a model

std::uint32_t currentGeneration() {
    return upperOf(s_rsRetainCount.load(std::memory_order_acquire));
}

// The models in order of n, then of k.
std::uint32_t pairOf(int k, int n) {
    return static_cast<std::uint32_t>(n * (n - 1) / 2 + k - 1);
}

std::uint32_t takeSlot() {
    const std::uint32_t slot = s_free.pop();
    if (slot != kNoSlot) {
        return slot;
    }
    const std::uint32_t fresh = s_touched.fetch_add(1, std::memory_order_relaxed) + 1;
    if (fresh <= kSlots) {
        return fresh;
    }
    s_touched.fetch_sub(1, std::memory_order_relaxed);
    return kNoSlot;
}

// Returns kNoSlot when there is no memory.
std::uint32_t fillSlot(int k, int n) {
    rs_param_* const model = CRsFec::CreateRsModel(k, n);
    const std::uint32_t slot = model != nullptr ? takeSlot() : kNoSlot;
    if (slot == kNoSlot) {
        CRsFec::DeleteRsModel(model);
        return kNoSlot;
    }
    s_slots[slot].model.store(model, std::memory_order_relaxed);
    return slot;
}

void emptySlot(std::uint32_t slot) {
    CRsFec::DeleteRsModel(s_slots[slot].model.exchange(nullptr, std::memory_order_relaxed));
    s_free.push(slot);
}

void forgetModel(std::uint32_t slot) {
    const rs_param_& model = *s_slots[slot].model.load(std::memory_order_relaxed);
    Word found = makeWord(s_slots[slot].generation, slot);
    s_rsModelMap[pairOf(model.k, model.n)].compare_exchange_strong(found, 0, std::memory_order_relaxed);
}

// Frees the models of every generation but the current one. When that changes meanwhile, the thread that
// changed it may have missed the slots in hand here, so they are looked through once more.
void freeOldModels() {
    std::uint32_t generation;
    do {
        generation = currentGeneration();
        std::uint32_t slot = s_filled.takeAll();
        while (slot != kNoSlot) {
            const std::uint32_t next = s_slots[slot].next.load(std::memory_order_relaxed);
            if (s_slots[slot].generation == currentGeneration()) {
                s_filled.push(slot);
            } else {
                forgetModel(slot);
                emptySlot(slot);
            }
            slot = next;
        }
    } while (generation != currentGeneration());
}

}  // namespace

rs_param_* GetRsModel(int k, int n) {
    // Compatibility: the key keeps 16 bits of each, so that k and n out of range may find a model.
    constexpr int kKeyMask = 0xFFFF;
    const int keyK = k & kKeyMask;
    const int keyN = n & kKeyMask;
    if (keyK < 1 || keyN < keyK || keyN > kMaxTotal) {
        return CRsFec::CreateRsModel(k, n);  // refused, each time anew
    }
    std::atomic<Word>& place = s_rsModelMap[pairOf(keyK, keyN)];
    std::uint32_t made = kNoSlot;
    for (;;) {
        const std::uint32_t generation = currentGeneration();
        Word found = place.load(std::memory_order_acquire);
        if (lowerOf(found) != kNoSlot && upperOf(found) == generation) {
            if (made != kNoSlot) {
                emptySlot(made);  // another thread was faster
            }
            return s_slots[lowerOf(found)].model.load(std::memory_order_relaxed);
        }
        if (made == kNoSlot && (made = fillSlot(k, n)) == kNoSlot) {
            return nullptr;
        }
        s_slots[made].generation = generation;
        // Asked again, since what was found may be newer than the generation.
        if (generation == currentGeneration() &&
            place.compare_exchange_strong(found, makeWord(generation, made), std::memory_order_acq_rel)) {
            rs_param_* const model = s_slots[made].model.load(std::memory_order_relaxed);
            s_filled.push(made);
            if (generation != currentGeneration()) {
                freeOldModels();  // the thread that began the new one may have missed this model
            }
            return model;
        }
    }
}

unsigned RsMapRetain() {
    Word users = s_rsRetainCount.load(std::memory_order_relaxed);
    Word wanted;
    do {
        wanted = lowerOf(users) == 0 ? makeWord(upperOf(users) + 1, 1) : users + 1;
    } while (!s_rsRetainCount.compare_exchange_weak(users, wanted, std::memory_order_acq_rel));
    if (lowerOf(users) == 0) {
        freeOldModels();
    }
    return lowerOf(wanted);
}

void RsMapRelease() {
    Word users = s_rsRetainCount.load(std::memory_order_relaxed);
    Word wanted;
    do {
        wanted = lowerOf(users) <= 1 ? makeWord(upperOf(users) + 1, 0) : users - 1;
    } while (!s_rsRetainCount.compare_exchange_weak(users, wanted, std::memory_order_acq_rel));
    if (lowerOf(users) <= 1) {
        freeOldModels();
    }
}

void RsMapClear() {
    s_rsRetainCount.fetch_add(makeWord(1, 0), std::memory_order_acq_rel);
    freeOldModels();
}

}  // namespace talrtp
