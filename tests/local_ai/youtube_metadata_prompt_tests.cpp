// What the model is told: the sections of the user prompt in order, the line grouping of
// the timestamped transcript, the limits of both transcript sections, and chapter times.

#include "local_ai/youtube_metadata_prompt.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

using namespace YouTubeMetadataPromptBuilder;

// One chunk of words, each (start, text), 0.3 s long.
ExportTranscriptContext contextOf(const std::vector<std::pair<double, std::string>>& words,
                                  double duration) {
    ExportTranscriptChunk chunk;
    for (const auto& [start, text] : words) {
        chunk.words.push_back({text, start, start + 0.3, start + 100, start + 100.3});
        chunk.text += (chunk.text.empty() ? "" : " ") + text;
    }
    if (!words.empty()) {
        chunk.start = words.front().first;
        chunk.end = words.back().first + 0.3;
    }
    return {duration, {chunk}};
}

TEST(YouTubeMetadataPromptTest, TheUserPromptHoldsItsSectionsInOrder) {
    YouTubeMetadataGenerationRequest request;
    request.context = contextOf({{0.5, "Hello"}, {1.0, "there."}}, 75.25);
    const std::string first = userPrompt(request);
    const auto position = [&first](std::string_view text) { return first.find(text); };
    EXPECT_EQ(position("You are writing YouTube metadata for a screen recording."), 0u);
    const std::vector<std::string_view> order{
        "- Do not mention Orvelle unless the transcript is about Orvelle.\n\nLatest user "
        "instruction: Generate the best YouTube title, description, chapters, and tags from the "
        "transcript.\n\nCurrent draft: none.\n\nRecent revision conversation: none.",
        "\n\nVideo duration: 75.2 seconds (1:15)",
        "\n\nTimestamped transcript:\n[0:00] Hello there.\n",
        "\n\nPlain transcript:\nHello there."};
    size_t previous = 0;
    for (const auto text : order) {
        ASSERT_NE(position(text), std::string::npos) << text;
        EXPECT_GE(position(text), previous) << text;
        previous = position(text);
    }
    // Transcript times are the edited video's, never the source's.
    EXPECT_EQ(first.find("1:40"), std::string::npos);

    request.instruction = "Make the title shorter";
    request.currentDraft = YouTubeMetadataDraft{"Old title", "Old words", {{0, "Intro"}}, {"tag"}};
    for (int i = 0; i < 10; ++i) {
        request.conversation.push_back({i % 2 == 0
                                            ? YouTubeMetadataConversationTurn::Role::user
                                            : YouTubeMetadataConversationTurn::Role::assistant,
                                        "turn " + std::to_string(i)});
    }
    const std::string revision = userPrompt(request);
    EXPECT_NE(
        revision.find("Latest user instruction:\nMake the title shorter\n\nCurrent draft:\n{"),
        std::string::npos);
    EXPECT_NE(revision.find("\"title\": \"Old title\""), std::string::npos);
    // Only the recent turns, oldest first.
    EXPECT_EQ(revision.find("turn 1\n"), std::string::npos);
    EXPECT_NE(revision.find("Recent revision conversation:\nUser: turn 2\nAssistant: turn 3"),
              std::string::npos);
    EXPECT_NE(revision.find("Assistant: turn 9\n\nVideo duration"), std::string::npos);
}

TEST(YouTubeMetadataPromptTest, LinesEndAtTwelveSecondsOrAFiveSecondPause) {
    const auto context = contextOf({{0, "a"},
                                    {4, "b"},
                                    {8.9, "c"}, // a pause of 4.6 s keeps the line
                                    {11.9, "d"},
                                    {12.5, "e"},  // the line is 12.2 s long: a new one
                                    {17.7, "f"},  // a pause of 4.9 s
                                    {23.0, "g"}}, // a pause of 5.0 s: a new line
                                   30);
    const auto lines = timestampedLines(context);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].text, "a b c d");
    EXPECT_EQ(lines[0].start, 0);
    EXPECT_DOUBLE_EQ(lines[0].end, 12.2);
    EXPECT_EQ(lines[1].text, "e f");
    EXPECT_EQ(lines[2].text, "g");
    EXPECT_EQ(timestampedSection(context), "[0:00] a b c d\n[0:12] e f\n[0:23] g\n");
}

TEST(YouTubeMetadataPromptTest, LongTranscriptsAreCutWithANote) {
    std::vector<std::pair<double, std::string>> words;
    for (int i = 0; i < 40000; ++i) {
        words.emplace_back(i * 0.4, "wörd"); // five bytes, one of them across a cut
    }
    const auto context = contextOf(words, 16000);
    const std::string timestamped = timestampedSection(context);
    const std::string note = "\n[Timestamped transcript truncated for local model context.]\n";
    ASSERT_GT(timestamped.size(), kTimestampedSectionLimit);
    EXPECT_LE(timestamped.size(), kTimestampedSectionLimit + note.size());
    EXPECT_EQ(timestamped.substr(timestamped.size() - note.size()), note);

    const std::string plain = plainSection(context);
    const std::string plainNote = "\n[Transcript truncated for local model context.]\n";
    EXPECT_EQ(plain.substr(plain.size() - plainNote.size()), plainNote);
    const std::string kept = plain.substr(0, plain.size() - plainNote.size());
    EXPECT_LE(kept.size(), kPlainSectionLimit);
    EXPECT_GE(kept.size(), kPlainSectionLimit - 1);
    // Never half a character: the kept text ends in a whole word piece.
    EXPECT_NE(static_cast<unsigned char>(kept.back()) & 0xC0, 0xC0);

    const auto small = contextOf({{0, "short"}}, 10);
    EXPECT_EQ(plainSection(small), "short");
}

// The schema is held to by llama-cli itself (the local AI tests run it); chapter times are
// written as a viewer reads them.
TEST(YouTubeMetadataPromptTest, ChapterTimesReadAsAViewerReadsThem) {
    EXPECT_EQ(formatChapterTime(-3), "0:00");
    EXPECT_EQ(formatChapterTime(599.99), "9:59");
    EXPECT_EQ(formatChapterTime(36000), "10:00:00");
}

} // namespace
} // namespace orvelle
