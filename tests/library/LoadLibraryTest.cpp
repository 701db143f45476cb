// Loads the shared library at run time, as an engine with plug-ins does: nothing of it is linked in here.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <talrtp/ITalRTCPStack.h>
#include <talrtp/ITalRTPSession.h>

namespace {

class LoadedLibrary : public testing::Test {
protected:
    void SetUp() override {
        m_library = dlopen(TALRTP_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(m_library, nullptr) << dlerror();
    }
    void TearDown() override {
        if (m_library != nullptr) {
            dlclose(m_library);
        }
    }

    template <typename Function>
    Function* entryPoint(const char* name) {
        return reinterpret_cast<Function*>(dlsym(m_library, name));
    }

    void* m_library = nullptr;
};

TEST_F(LoadedLibrary, SessionIsCreatedAndDestroyedThroughItsEntryPoints) {
    auto* const create = entryPoint<decltype(TalCreateRTPSession)>("TalCreateRTPSession");
    auto* const destroy = entryPoint<decltype(TalDestroyRTPSession)>("TalDestroyRTPSession");
    ASSERT_NE(create, nullptr);
    ASSERT_NE(destroy, nullptr);

    talrtp::ITalRTPSession* session = nullptr;
    create(&session, nullptr, 0x12345678, 2);
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(session->SetPayloadType(96, 97), 0);
    destroy(session);
}

TEST_F(LoadedLibrary, RtcpStackIsCreatedAndDestroyedThroughItsEntryPoints) {
    auto* const create = entryPoint<decltype(TalCreateRTCPStack)>("TalCreateRTCPStack");
    auto* const destroy = entryPoint<decltype(TalDestroyRTCPStack)>("TalDestroyRTCPStack");
    ASSERT_NE(create, nullptr);
    ASSERT_NE(destroy, nullptr);

    talrtp::ITalRTCPStack* stack = nullptr;
    create(&stack);
    ASSERT_NE(stack, nullptr);
    destroy(stack);
}

}  // namespace
