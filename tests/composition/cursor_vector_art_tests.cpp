#include "composition/cursor_vector_art.h"

#include <gtest/gtest.h>

#include <cmath>

namespace orvelle {
namespace {

constexpr std::array<CursorStyle, 7> kStyles{
    CursorStyle::soft,    CursorStyle::crisp,   CursorStyle::obsidian, CursorStyle::brutalist,
    CursorStyle::beveled, CursorStyle::pointer, CursorStyle::dot};
const BackgroundColorRGBA kDotColor{0.62, 0.62, 0.66, 0.34};

// Where the ink is: its top-left-most solid point (smallest x + y with alpha over half),
// and the centre of all ink, in box units.
struct Ink {
    Point tip;
    Point centroid;
};

Ink inkOf(const Bitmap& art) {
    const double unit = art.width() / CursorVectorArt::kBoxSize;
    Ink ink{{1e9, 1e9}, {}};
    double total = 0;
    for (int y = 0; y < art.height(); ++y) {
        for (int x = 0; x < art.width(); ++x) {
            const int a = art.pixel(x, y)[3];
            if (a > 128 && x + y < ink.tip.x + ink.tip.y) {
                ink.tip = {static_cast<double>(x), static_cast<double>(y)};
            }
            ink.centroid.x += a * (x + 0.5);
            ink.centroid.y += a * (y + 0.5);
            total += a;
        }
    }
    ink.tip = {ink.tip.x / unit, ink.tip.y / unit};
    ink.centroid = {ink.centroid.x / total / unit, ink.centroid.y / total / unit};
    return ink;
}

TEST(CursorVectorArt, ArrowsPointAtTheirHotSpotAndTheDotIsCentred) {
    for (const CursorStyle style : kStyles) {
        const auto art = CursorVectorArt::render(style, 192, kDotColor);
        ASSERT_TRUE(art.has_value());
        ASSERT_EQ(art->width(), 192);
        ASSERT_EQ(art->height(), 192);
        const Ink ink = inkOf(*art);
        const Point hot = CursorVectorArt::hotSpot(style);
        SCOPED_TRACE(std::string(enumName(style)));
        if (style == CursorStyle::dot) {
            EXPECT_EQ(hot, (Point{24, 24}));
            EXPECT_NEAR(ink.centroid.x, 24, 0.3);
            EXPECT_NEAR(ink.centroid.y, 24, 0.3);
        } else {
            EXPECT_EQ(hot, (Point{5, 4}));
            // The outline reaches a little beyond the point itself.
            EXPECT_NEAR(ink.tip.x, 5, 2.0);
            EXPECT_NEAR(ink.tip.y, 4, 2.0);
            // The body lies below and to the right of the point.
            EXPECT_GT(ink.centroid.x, 9);
            EXPECT_GT(ink.centroid.y, 14);
        }
        // Nothing touches the box's edges: the art and its shadow fit.
        for (int i = 0; i < 192; ++i) {
            EXPECT_EQ(art->pixel(i, 0)[3], 0);
            EXPECT_EQ(art->pixel(191, i)[3], 0);
        }
    }
}

TEST(CursorVectorArt, EveryStyleLooksDifferent) {
    std::vector<Bitmap> arts;
    for (const CursorStyle style : kStyles) {
        arts.push_back(*CursorVectorArt::render(style, 96, kDotColor));
    }
    for (size_t a = 0; a < arts.size(); ++a) {
        for (size_t b = a + 1; b < arts.size(); ++b) {
            double difference = 0;
            for (int y = 0; y < 96; ++y) {
                for (int x = 0; x < 96; ++x) {
                    for (size_t c = 0; c < 4; ++c) {
                        difference += std::abs(arts[a].pixel(x, y)[c] - arts[b].pixel(x, y)[c]);
                    }
                }
            }
            EXPECT_GT(difference / (96 * 96), 8)
                << enumName(kStyles[a]) << " and " << enumName(kStyles[b]);
        }
    }
}

// The dot is painted in its colour, premultiplied; no art has no size.
TEST(CursorVectorArt, DotTakesItsColour) {
    const BackgroundColorRGBA orange{1.0, 0.5, 0.0, 0.8};
    const auto centre = CursorVectorArt::render(CursorStyle::dot, 96, orange)->pixel(48, 48);
    EXPECT_NEAR(centre[3], 204, 2);
    EXPECT_NEAR(centre[2], 204, 2);
    EXPECT_NEAR(centre[1], 102, 2);
    EXPECT_NEAR(centre[0], 0, 1);
    EXPECT_FALSE(CursorVectorArt::render(CursorStyle::soft, 0, orange).has_value());
}

} // namespace
} // namespace orvelle
