// The model's answer is never trusted: parsing out of free text, the repairs, the limits of
// title, description and tags, and the chapter rules with their fallback.

#include "local_ai/youtube_metadata_draft.h"

#include <gtest/gtest.h>

#include <cmath>

namespace orvelle {
namespace {

using namespace YouTubeMetadataDraftValidator;

TEST(YouTubeMetadataDraftParserTest, FindsTheLastObjectThatDecodesInFreeText) {
    struct Case {
        std::string name;
        std::string output;
        std::optional<std::string> title; // absent: nothing decodes
    };
    const std::vector<Case> cases{
        {"preamble and two objects",
         R"(Sure! Here is a draft: {"title": "First"} and then {"title": "Second", "tags": []})",
         "Second"},
        {"the last object does not decode", R"({"title": "Good"} {"title": 42})", "Good"},
        {"braces and quotes inside strings", R"(x {"title": "a } b \" { c", "description": "{"} y)",
         "a } b \" { c"},
        {"a fenced block", "```json\n{\"title\": \"Fenced\"}\n```", "Fenced"},
        {"trailing commas", R"({"title": "Commas", "tags": ["a", "b",],})", "Commas"},
        {"nested objects count once",
         R"({"title": "Outer", "chapters": [{"time": 0, "title": "In"}]})", "Outer"},
        {"an unclosed object", R"({"title": "never closed")", std::nullopt},
        {"no object at all", "I cannot help with that.", std::nullopt},
        {"an object inside a list", R"([{"title": "in a list"}])", "in a list"},
        {"chapters of the wrong type", R"({"title": "T", "chapters": "none"})", std::nullopt},
    };
    for (const auto& each : cases) {
        const auto draft = YouTubeMetadataDraftParser::parse(each.output);
        ASSERT_EQ(draft.has_value(), each.title.has_value()) << each.name;
        if (draft) {
            EXPECT_EQ(draft->title, *each.title) << each.name;
        }
    }
    EXPECT_EQ(YouTubeMetadataDraftParser::jsonObjectTexts(R"(a {"x": "}"} b {} c {)").size(), 2u);
}

TEST(YouTubeMetadataDraftParserTest, RepairsTimesTagsAndMissingFields) {
    const auto draft = YouTubeMetadataDraftParser::parse(R"({
        "chapters": [{"time": "1:30", "title": "A"}, {"time": "1:02:03", "title": "B"},
                     {"time": "45.5", "title": "C"}, {"time": "soon", "title": "D"},
                     {"title": "E"}, {"time": 12, "title": "F"}],
        "tags": "#screen recording, tutorial ,, #"})");
    ASSERT_TRUE(draft.has_value());
    EXPECT_EQ(draft->title, "");
    EXPECT_EQ(draft->description, "");
    ASSERT_EQ(draft->chapters.size(), 6u);
    EXPECT_EQ(draft->chapters[0].time, 90);
    EXPECT_EQ(draft->chapters[1].time, 3723);
    EXPECT_EQ(draft->chapters[2].time, 45.5);
    EXPECT_TRUE(std::isnan(draft->chapters[3].time));
    EXPECT_TRUE(std::isnan(draft->chapters[4].time));
    EXPECT_EQ(draft->chapters[5].time, 12);
    EXPECT_EQ(draft->tags, (std::vector<std::string>{"screen recording", "tutorial", "", ""}));
    EXPECT_EQ(normalizedTags(draft->tags),
              (std::vector<std::string>{"screen recording", "tutorial"}));
}

TEST(YouTubeMetadataDraftValidatorTest, TitleDescriptionAndTagsAreCutToWhatYouTubeTakes) {
    EXPECT_EQ(normalizedTitle(std::string(150, 'x')), std::string(100, 'x'));
    EXPECT_EQ(normalizedTitle("  A title  "), "A title");
    // Cut at 100 characters, then trimmed: the blank at 100 goes.
    EXPECT_EQ(normalizedTitle(std::string(99, 'a') + " bcd"), std::string(99, 'a'));
    // Characters, not bytes: 120 "é" written as e + combining acute are 120 characters.
    std::string combining;
    for (int i = 0; i < 120; ++i) {
        combining += "e\xCC\x81";
    }
    EXPECT_EQ(normalizedTitle(combining), combining.substr(0, 300));
    std::string flags;
    for (int i = 0; i < 101; ++i) {
        flags += "\xF0\x9F\x87\xA9\xF0\x9F\x87\xAA"; // one flag, two scalars
    }
    EXPECT_EQ(normalizedTitle(flags), flags.substr(0, 800));

    EXPECT_EQ(normalizedDescription(std::string(5000, 'd')).size(), 5000u);
    EXPECT_EQ(normalizedDescription(std::string(6000, 'd')).size(), 5000u);
    // A two-byte character across the limit is left out whole.
    const std::string accents = std::string(4999, 'd') + "\xC3\xA9\xC3\xA9";
    EXPECT_EQ(normalizedDescription(accents), std::string(4999, 'd'));
    EXPECT_EQ(normalizedDescription("\n  Text.  \n"), "Text.");

    EXPECT_EQ(normalizedTags({" Rust ", "rust", "RUST", "", "  ", "Ünïcode", "üNÏCODE", "cargo"}),
              (std::vector<std::string>{"Rust", "Ünïcode", "cargo"}));
}

std::vector<double> times(const std::vector<YouTubeChapter>& chapters) {
    std::vector<double> result;
    for (const auto& chapter : chapters) {
        result.push_back(chapter.time);
    }
    return result;
}

TEST(YouTubeMetadataDraftValidatorTest, ChapterRules) {
    const auto chapters = [](std::vector<double> values) {
        std::vector<YouTubeChapter> result;
        for (const double value : values) {
            result.push_back({value, "Chapter"});
        }
        return result;
    };
    const double nan = std::nan("");
    const double inf = INFINITY;
    struct Case {
        std::string name;
        std::vector<YouTubeChapter> chapters;
        double duration;
        std::vector<double> expected;
    };
    const std::vector<Case> cases{
        {"a video under 30 s has none", chapters({0, 10, 20}), 29.9, {}},
        {"exactly 30 s may have them", chapters({0, 10, 20}), 30, {0, 10, 20}},
        {"sorted, the first moved to 0", chapters({40, 3, 20}), 300, {0, 20, 40}},
        {"closer than 10 s to the last kept", chapters({0, 5, 15, 24, 26}), 300, {0, 15, 26}},
        {"inside the last 10 s", chapters({0, 20, 40, 95}), 100, {0, 20, 40}},
        {"times past the end are clamped, then dropped",
         chapters({0, 20, 40, 500}),
         100,
         {0, 20, 40}},
        {"not finite", chapters({0, nan, 20, inf, 40}), 100, {0, 20, 40}},
        {"fewer than 3 left", chapters({0, 5, 50}), 300, {}},
        {"one chapter", chapters({0}), 300, {}},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(times(normalizedChapters(each.chapters, each.duration)), each.expected)
            << each.name;
    }
    const auto untitled = normalizedChapters({{0, "A"}, {20, "  "}, {30, "B"}, {60, "C"}}, 300);
    ASSERT_EQ(untitled.size(), 3u);
    EXPECT_EQ(untitled[1].title, "B");
}

TEST(YouTubeMetadataDraftValidatorTest, ChapterLinesAndTheUploadedDescription) {
    const std::vector<YouTubeChapter> chapters{{0, "Intro"}, {65.9, "Setup"}, {3725, "Late"}};
    EXPECT_EQ(chapterLines(chapters),
              (std::vector<std::string>{"0:00 Intro", "1:05 Setup", "1:02:05 Late"}));
    YouTubeMetadataDraft draft{"T", "About this.", chapters, {}};
    EXPECT_EQ(composedDescription(draft), "About this.\n\n0:00 Intro\n1:05 Setup\n1:02:05 Late");
    draft.chapters.clear();
    EXPECT_EQ(composedDescription(draft), "About this.");
}

ExportTranscriptChunk chunk(int id, double start, double end, const std::string& text) {
    ExportTranscriptChunk result{id, start, end, text, {}};
    double time = start;
    std::string word;
    for (const char c : text + " ") {
        if (c != ' ') {
            word += c;
        } else if (!word.empty()) {
            result.words.push_back({word, time, time + 0.3, time, time + 0.3});
            time += 0.4;
            word.clear();
        }
    }
    return result;
}

TEST(YouTubeMetadataChapterFallbackTest, ChaptersFromTheTranscriptOrInThirds) {
    using YouTubeMetadataChapterFallback::chapters;
    ExportTranscriptContext context{
        300,
        {chunk(0, 0.5, 9, "welcome to the tour of the new editor today."),
         chunk(1, 9, 15, "first, open a file"),
         chunk(2, 15, 60, "then we record the screen and talk"),
         chunk(3, 60, 290, "finally we export it"), chunk(4, 295, 299, "bye now")}};
    const auto made = chapters(context);
    EXPECT_EQ(times(made), (std::vector<double>{0, 15, 60}));
    EXPECT_EQ(made[0].title, "Welcome to the tour of the");
    EXPECT_EQ(made[1].title, "Then we record the screen and");
    EXPECT_EQ(made[2].title, "Finally we export it");
    // What the fallback makes passes the rules it stands in for.
    EXPECT_EQ(normalizedChapters(made, 300), made);

    // Too few chunk starts: the video in thirds.
    const ExportTranscriptContext sparse{90, {chunk(0, 0, 80, "one long thought")}};
    const auto thirds = chapters(sparse);
    EXPECT_EQ(times(thirds), (std::vector<double>{0, 30, 60}));
    EXPECT_EQ(thirds[0].title, "One long thought");
    EXPECT_EQ(thirds[1].title, "Main walkthrough");
    const ExportTranscriptContext silent{90, {}};
    EXPECT_EQ(chapters(silent)[0].title, "Intro");
    EXPECT_EQ(chapters(silent)[2].title, "Wrap-up");

    EXPECT_TRUE(chapters({29.9, context.chunks}).empty());
}

} // namespace
} // namespace orvelle
