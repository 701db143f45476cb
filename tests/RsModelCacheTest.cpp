// What the receiving side asks of the model cache.

#include "RsModelCache.h"

#include <talrtp/RsFec.h>

#include <gtest/gtest.h>

namespace talrtp {
namespace {

class RsModelCacheCountTest : public testing::Test {
protected:
    void SetUp() override { RsMapClear(); }
    void TearDown() override { RsMapClear(); }
};

TEST_F(RsModelCacheCountTest, EmptyCacheHoldsNothing) {
    EXPECT_EQ(getCachedRsModelCount(), 0u);
    EXPECT_FALSE(isRsModelCached(4, 6));
}

TEST_F(RsModelCacheCountTest, AskingDoesNotFillTheCache) {
    isRsModelCached(4, 6);
    EXPECT_EQ(getCachedRsModelCount(), 0u);
}

TEST_F(RsModelCacheCountTest, CountsEachModelOnce) {
    GetRsModel(4, 6);
    GetRsModel(4, 6);
    GetRsModel(4, 7);
    EXPECT_EQ(getCachedRsModelCount(), 2u);
    EXPECT_TRUE(isRsModelCached(4, 6));
    EXPECT_TRUE(isRsModelCached(4, 7));
    EXPECT_FALSE(isRsModelCached(6, 4));
}

TEST_F(RsModelCacheCountTest, RefusedPairIsNoModel) {
    GetRsModel(6, 4);
    EXPECT_EQ(getCachedRsModelCount(), 0u);
    EXPECT_FALSE(isRsModelCached(6, 4));
}

TEST_F(RsModelCacheCountTest, ClearedCacheHoldsNothing) {
    GetRsModel(4, 6);
    GetRsModel(6, 4);
    RsMapClear();
    EXPECT_EQ(getCachedRsModelCount(), 0u);
    EXPECT_FALSE(isRsModelCached(4, 6));
}

}  // namespace
}  // namespace talrtp
