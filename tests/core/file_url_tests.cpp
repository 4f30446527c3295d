#include "core/error.h"
#include "core/file_url.h"
#include "core/uuid.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

TEST(FileURL, EncodesWhatAUrlCannotHoldAndDecodesItBack) {
    const std::filesystem::path path = "/home/me/My Take #1/café 100%.mov";
    const std::string url = fileURLString(path);
    EXPECT_EQ(url, "file:///home/me/My%20Take%20%231/caf%C3%A9%20100%25.mov");
    EXPECT_EQ(pathFromFileURL(url), path);
}

TEST(FileURL, AcceptsLocalhostAndPlainAbsolutePaths) {
    EXPECT_EQ(pathFromFileURL("file://localhost/tmp/a%20b.mov"), "/tmp/a b.mov");
    EXPECT_EQ(pathFromFileURL("FILE:///tmp/x"), "/tmp/x");
    EXPECT_EQ(pathFromFileURL("/tmp/plain.mov"), "/tmp/plain.mov");
}

TEST(FileURL, RefusesOtherSchemesAndRelativeText) {
    EXPECT_THROW(pathFromFileURL("https://example.com/a.mov"), Error);
    EXPECT_THROW(pathFromFileURL("file://server/share/a.mov"), Error);
    EXPECT_THROW(pathFromFileURL("relative/a.mov"), Error);
}

TEST(FileURL, LeavesBrokenEscapesAlone) {
    EXPECT_EQ(percentDecode("100%"), "100%");
    EXPECT_EQ(percentDecode("%zz%4"), "%zz%4");
    EXPECT_EQ(percentDecode("%41%42"), "AB");
}

TEST(FileURL, StandardisedPathsCompareEqual) {
    EXPECT_EQ(standardizedPath("/a/b/../c/./d/"), "/a/c/d");
    EXPECT_EQ(standardizedPath("/a//b"), standardizedPath("/a/b"));
    EXPECT_TRUE(standardizedPath("relative").is_absolute());
}

TEST(FileURL, ReplacesOnlyTheLastExtension) {
    EXPECT_EQ(replacingExtension("/t/a.b.mov", "take.json"), "/t/a.b.take.json");
    EXPECT_EQ(replacingExtension("/t/name", "take.json"), "/t/name.take.json");
    EXPECT_EQ(baseName("/t/a.b.mov"), "a.b");
}

TEST(Uuid, WritesUpperCaseAndReadsEitherCase) {
    const auto id = Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    ASSERT_TRUE(id);
    EXPECT_EQ(id->string(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(Uuid::parse(id->string()), id);
    const Uuid fresh = Uuid::random();
    EXPECT_NE(fresh, Uuid::random());
    EXPECT_EQ(Uuid::parse(fresh.string()), fresh);
}

TEST(Uuid, RefusesMalformedText) {
    for (const char* text :
         {"", "E621E1F8C36C495A93FC0C247A3E6E5F", "E621E1F8-C36C-495A-93FC-0C247A3E6E5",
          "G621E1F8-C36C-495A-93FC-0C247A3E6E5F", "E621E1F8-C36C-495A-93FC_0C247A3E6E5F"}) {
        EXPECT_FALSE(Uuid::parse(text)) << text;
    }
}

} // namespace
} // namespace orvelle
