#include "core/date.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

TEST(Date, WritesMillisecondsInUtcAndReadsThemBack) {
    const Date date = Date::fromSecondsSince1970(1700000000.123);
    EXPECT_EQ(date.iso8601(), "2023-11-14T22:13:20.123Z");
    EXPECT_EQ(Date::parseISO8601(date.iso8601()), date);
}

TEST(Date, NowSurvivesItsOwnText) {
    const Date now = Date::now();
    EXPECT_EQ(Date::parseISO8601(now.iso8601()), now);
}

TEST(Date, ReadsTheCommonIsoForms) {
    const Date reference = Date::fromSecondsSinceReferenceDate(0);
    EXPECT_EQ(Date::parseISO8601("2001-01-01T00:00:00Z"), reference);
    EXPECT_EQ(Date::parseISO8601("2001-01-01T01:30:00+01:30"), reference);
    EXPECT_EQ(Date::parseISO8601("2000-12-31T23:00:00-0100"), reference);
    EXPECT_EQ(Date::parseISO8601("2001-01-01T00:00:00.5Z")->millisecondsSince1970,
              reference.millisecondsSince1970 + 500);
    EXPECT_EQ(Date::parseISO8601("2001-01-01T00:00:00.123456Z")->millisecondsSince1970,
              reference.millisecondsSince1970 + 123);
}

TEST(Date, RefusesWhatIsNotAnIsoDate) {
    for (const char* text :
         {"", "2001-01-01", "2001-01-01T00:00:00", "2001-13-01T00:00:00Z",
          "2001-01-01T00:00:00Zjunk", "01-01-2001T00:00:00Z", "2001-01-01T00:00:00.Z", "1.5"}) {
        EXPECT_FALSE(Date::parseISO8601(text).has_value()) << text;
    }
}

TEST(Date, NumericFormCountsFrom2001) {
    EXPECT_EQ(Date::fromSecondsSinceReferenceDate(0).iso8601(), "2001-01-01T00:00:00.000Z");
    EXPECT_EQ(Date::fromSecondsSinceReferenceDate(86400.25).iso8601(), "2001-01-02T00:00:00.250Z");
    EXPECT_DOUBLE_EQ(Date::fromSecondsSinceReferenceDate(42.5).secondsSinceReferenceDate(), 42.5);
}

TEST(Date, DatesBefore1970Format) {
    EXPECT_EQ(Date::fromSecondsSince1970(-1.5).iso8601(), "1969-12-31T23:59:58.500Z");
    EXPECT_EQ(Date::parseISO8601("1969-12-31T23:59:58.500Z"), Date::fromSecondsSince1970(-1.5));
}

} // namespace
} // namespace orvelle
