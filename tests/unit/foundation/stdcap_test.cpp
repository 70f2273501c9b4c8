#include <gtest/gtest.h>

#include "graph/stdcap.h"
#include "platform/media.h"

namespace {
// One object with two interfaces, counting its references.
class TwoFaced : public media::MediaControl, public media::MediaSeeking {
  public:
    int refs = 1;
    HRESULT query_interface(Iid iid, void** out) override {
        if (iid == Iid::unknown || iid == Iid::media_control) {
            *out = static_cast<media::MediaControl*>(this);
        } else if (iid == Iid::media_seeking) {
            *out = static_cast<media::MediaSeeking*>(this);
        } else {
            *out = nullptr;
            return E_NOINTERFACE;
        }
        ++refs;
        return S_OK;
    }
    std::uint32_t add_ref() override { return static_cast<std::uint32_t>(++refs); }
    std::uint32_t release() override { return static_cast<std::uint32_t>(--refs); }
    HRESULT run() override { return S_OK; }
    HRESULT stop() override { return S_OK; }
    HRESULT get_current_position(std::int64_t*) override { return S_OK; }
};
}  // namespace

TEST(ComPtr, HoldsAndReleasesExactlyOneReference) {
    TwoFaced object;
    {
        ComPtr<media::MediaControl> holder;
        EXPECT_FALSE(holder.valid());
        ASSERT_EQ(query_interface(static_cast<media::MediaControl*>(&object), holder), S_OK);
        EXPECT_TRUE(holder.valid());
        EXPECT_EQ(object.refs, 2);
        holder.release();
        EXPECT_FALSE(holder.valid());
        EXPECT_EQ(object.refs, 1);
        ASSERT_EQ(query_interface(static_cast<media::MediaControl*>(&object), holder), S_OK);
        ComPtr<media::MediaControl> moved = std::move(holder);
        EXPECT_FALSE(holder.valid());
        EXPECT_EQ(object.refs, 2);
    }
    EXPECT_EQ(object.refs, 1);  // the destructor released silently
    ComPtr<media::MediaSeeking> none;
    EXPECT_EQ(query_interface(static_cast<media::MediaControl*>(&object), none), S_OK);
    none.reset();
    none.reset();  // harmless when empty
    EXPECT_EQ(object.refs, 1);
}

TEST(ComPtrDeathTest, EmptyHolderStopsOnUse) {
    ComPtr<media::MediaControl> empty;
    EXPECT_DEATH(empty.get(), "Assertion failed: t != NULL, file stdcap.h");
    EXPECT_DEATH(empty->run(), "t != NULL");
    EXPECT_DEATH(empty.release(), "t != NULL");
    TwoFaced object;
    ComPtr<media::MediaControl> full(static_cast<media::MediaControl*>(&object));
    object.add_ref();
    EXPECT_DEATH(full.out(), "t == NULL");  // an out-parameter must start empty
}

TEST(SameObject, ComparesIdentitiesAndReleasesThem) {
    TwoFaced a;
    TwoFaced b;
    EXPECT_TRUE(
        same_object(static_cast<media::MediaControl*>(&a), static_cast<media::MediaSeeking*>(&a)));
    EXPECT_FALSE(
        same_object(static_cast<media::MediaControl*>(&a), static_cast<media::MediaControl*>(&b)));
    EXPECT_EQ(a.refs, 1);
    EXPECT_EQ(b.refs, 1);
    EXPECT_DEATH(same_object(nullptr, static_cast<media::MediaControl*>(&a)),
                 "Assertion failed: i1");
}
