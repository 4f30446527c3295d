#include "playback/preview_frame_cache.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

Bitmap picture(int width, int height, uint8_t shade) {
    Bitmap bitmap(width, height);
    bitmap.setPixel(0, 0, {shade, shade, shade, 255});
    return bitmap;
}

PreviewFrameKey key(int64_t index, uint64_t snapshot = 1, int width = 16) {
    return {snapshot, width, 9, 30, index};
}

TEST(PreviewFrameCache, KeepsPicturesBySnapshotSizeAndInstantWithinItsByteLimit) {
    const size_t frameBytes = Bitmap(16, 9).stride() * 9;
    PreviewFrameCache cache(frameBytes * 3);
    for (int64_t i = 0; i < 3; ++i) {
        cache.insert(key(i), picture(16, 9, static_cast<uint8_t>(i)));
    }
    // Another snapshot, size or instant is another picture.
    EXPECT_FALSE(cache.find(key(0, 2)));
    EXPECT_FALSE(cache.find(key(0, 1, 32)));
    ASSERT_TRUE(cache.find(key(2)));
    EXPECT_EQ(cache.find(key(2))->pixel(0, 0)[0], 2);

    // Used just now, frame 0 outlives frame 1 when a fourth comes in.
    ASSERT_TRUE(cache.find(key(0)));
    cache.insert(key(3), picture(16, 9, 3));
    EXPECT_TRUE(cache.find(key(0)));
    EXPECT_FALSE(cache.find(key(1)));
    EXPECT_TRUE(cache.find(key(3)));

    const PreviewFrameCacheStatistics statistics = cache.statistics();
    EXPECT_EQ(statistics.frameCount, 3u);
    EXPECT_EQ(statistics.byteCount, frameBytes * 3);
    EXPECT_LE(statistics.byteCount, statistics.byteLimit);

    // A picture larger than the whole limit is not kept and drives nothing out.
    cache.insert(key(9), picture(64, 64, 9));
    EXPECT_FALSE(cache.find(key(9)));
    EXPECT_EQ(cache.statistics().frameCount, 3u);

    // The same key again replaces the picture without counting it twice.
    cache.insert(key(3), picture(16, 9, 7));
    EXPECT_EQ(cache.find(key(3))->pixel(0, 0)[0], 7);
    EXPECT_EQ(cache.statistics().byteCount, frameBytes * 3);

    cache.clear();
    EXPECT_EQ(cache.statistics().byteCount, 0u);
    EXPECT_FALSE(cache.find(key(0)));
}

} // namespace
} // namespace orvelle
