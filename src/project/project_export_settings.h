#pragma once

// The export panel's choices, remembered with the project, and the drafted YouTube
// chapters and revision conversation that go with them.

#include "core/json.h"

#include <string>
#include <vector>

namespace orvelle {

// A chapter marker of the edited video.
struct YouTubeChapter {
    double time = 0; // seconds of the edited video
    std::string title;

    friend bool operator==(const YouTubeChapter&, const YouTubeChapter&) = default;
};

// One message of the conversation that revises a metadata draft.
struct YouTubeMetadataConversationTurn {
    enum class Role { user, assistant };

    Role role = Role::user;
    std::string text;

    friend bool operator==(const YouTubeMetadataConversationTurn&,
                           const YouTubeMetadataConversationTurn&) = default;
};

std::span<const EnumName<YouTubeMetadataConversationTurn::Role>>
    jsonNames(YouTubeMetadataConversationTurn::Role);

struct ProjectExportSettings {
    bool uploadToYouTube = false;
    bool saveLocalCopy = true;
    std::string location = "desktop";
    std::string format = "mp4";
    std::string quality = "high";
    std::string privacy = "privateVideo";
    std::string audience = "notMadeForKids";
    std::string category = "education";
    std::string language = "english";
    std::string license = "standard";
    std::string tags = "tutorial, screencast";
    bool paidPromotion = false;
    bool containsSyntheticMedia = false;
    std::string youtubeTitle = "Orvelle Recording";
    std::string youtubeDescription = "A Orvelle walkthrough.";
    std::string youtubeMetadataPrompt = "Generate YouTube metadata from the transcript";
    std::vector<YouTubeChapter> youtubeChapters;
    std::vector<YouTubeMetadataConversationTurn> metadataConversation;

    friend bool operator==(const ProjectExportSettings&, const ProjectExportSettings&) = default;
};

template <>
struct JsonCoder<YouTubeChapter> {
    static YouTubeChapter decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const YouTubeChapter& value);
};

template <>
struct JsonCoder<YouTubeMetadataConversationTurn> {
    static YouTubeMetadataConversationTurn decode(const Json& json,
                                                  const JsonDecodeContext& context);
    static Json encode(const YouTubeMetadataConversationTurn& value);
};

template <>
struct JsonCoder<ProjectExportSettings> {
    static ProjectExportSettings decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const ProjectExportSettings& value);
};

} // namespace orvelle
