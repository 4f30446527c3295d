#include "core/json.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>

namespace orvelle {
namespace {

enum class Fruit { apple, pear };
constexpr std::array<EnumName<Fruit>, 2> kFruitNames{
    {{Fruit::apple, "apple"}, {Fruit::pear, "pear"}}};
std::span<const EnumName<Fruit>> jsonNames(Fruit) {
    return kFruitNames;
}

TEST(Json, WritesSortedKeysWithTwoSpaceIndent) {
    const Json value = {{"zeta", 1}, {"alpha", {{"b", true}, {"a", 0.5}}}};
    EXPECT_EQ(prettyJson(value),
              "{\n  \"alpha\": {\n    \"a\": 0.5,\n    \"b\": true\n  },\n  \"zeta\": 1\n}\n");
}

TEST(Json, ReaderTreatsNullAsAbsentAndNamesMissingKeys) {
    const Json value = parseJson(R"({"outer": {"size": null, "count": 3}})");
    const JsonObjectReader outer(value.at("outer"), JsonDecodeContext{}.key("outer"));
    EXPECT_EQ(outer.value<double>("size", 1.5), 1.5);
    EXPECT_EQ(outer.required<int>("count"), 3);
    if (const auto error = testing::thrown<JsonDecodeError>([&] { outer.required<int>("size"); })) {
        EXPECT_EQ(error->path(), "outer.size");
        EXPECT_STREQ(error->what(), "outer.size: required key is missing");
    }
}

TEST(Json, SanitisedNumbersClampOrFallBack) {
    const Json value = parseJson(R"({"high": 9, "low": -2, "inside": 0.3})");
    const JsonObjectReader reader(value, {});
    EXPECT_EQ(reader.sanitised("high", 0.5, 4.0, 1.5), 4.0);
    EXPECT_EQ(reader.sanitised("low", 0.5, 4.0, 1.5), 0.5);
    EXPECT_EQ(reader.sanitised("inside", 0, 1, 0.7), 0.3);
    EXPECT_EQ(reader.sanitised("missing", 0, 1, 0.7), 0.7);
    EXPECT_EQ(sanitisedNumber(NAN, 0, 1, 0.7), 0.7);
    EXPECT_EQ(sanitisedNumber(INFINITY, 0, 1, 0.7), 0.7);
}

TEST(Json, TypeMismatchesFailWithThePath) {
    const Json value = parseJson(R"({"list": [1, "two"], "flag": 1, "whole": 2.5})");
    const JsonObjectReader reader(value, {});
    EXPECT_THROW(reader.required<std::vector<int>>("list"), JsonDecodeError);
    try {
        reader.required<std::vector<int>>("list");
    } catch (const JsonDecodeError& error) {
        EXPECT_EQ(error.path(), "list[1]");
    }
    EXPECT_THROW(reader.required<bool>("flag"), JsonDecodeError);
    EXPECT_THROW(reader.required<int>("whole"), JsonDecodeError);
    EXPECT_EQ(decodeJson<int>(parseJson("3.0")), 3);
}

TEST(Json, EnumerationsReadByNameAndNameTheUnknownValue) {
    EXPECT_EQ(decodeJson<Fruit>(Json("pear")), Fruit::pear);
    EXPECT_EQ(encodeJson(Fruit::apple), Json("apple"));
    if (const auto error = testing::thrown<JsonDecodeError>(
            [&] { decodeJson<Fruit>(Json("plum"), JsonDecodeContext{}.key("fruit")); })) {
        EXPECT_STREQ(error->what(), "fruit: unknown value \"plum\"");
    }
}

TEST(Json, DatesFollowTheDecodingInForce) {
    const Json iso = "2001-01-01T00:00:10.000Z";
    const Json numeric = 10.0;
    EXPECT_EQ(decodeJson<Date>(iso), Date::fromSecondsSinceReferenceDate(10));
    EXPECT_THROW(decodeJson<Date>(numeric), JsonDecodeError);
    const JsonDecodeContext legacy{"", DateDecoding::secondsSinceReferenceDate};
    EXPECT_EQ(decodeJson<Date>(numeric, legacy), Date::fromSecondsSinceReferenceDate(10));
    EXPECT_THROW(decodeJson<Date>(iso, legacy), JsonDecodeError);
}

TEST(Json, PathsTravelAsFileUrls) {
    const std::filesystem::path path = "/tmp/a b.mov";
    EXPECT_EQ(encodeJson(path), Json("file:///tmp/a%20b.mov"));
    EXPECT_EQ(decodeJson<std::filesystem::path>(encodeJson(path)), path);
    EXPECT_THROW(decodeJson<std::filesystem::path>(Json("http://x/y")), JsonDecodeError);
}

TEST(Json, MalformedTextIsADecodeError) {
    EXPECT_THROW(parseJson("{\"a\": "), JsonDecodeError);
    EXPECT_THROW(parseJson(""), JsonDecodeError);
    // Well-formed, but no double holds it.
    EXPECT_THROW(parseJson(R"({"createdAt": 7000e0615})"), JsonDecodeError);
}

} // namespace
} // namespace orvelle
