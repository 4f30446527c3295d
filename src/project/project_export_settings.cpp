#include "project/project_export_settings.h"

namespace orvelle {

namespace {

using Role = YouTubeMetadataConversationTurn::Role;

constexpr std::array<EnumName<Role>, 2> kRoleNames{{
    {Role::user, "user"},
    {Role::assistant, "assistant"},
}};

} // namespace

std::span<const EnumName<Role>> jsonNames(Role) {
    return kRoleNames;
}

YouTubeChapter JsonCoder<YouTubeChapter>::decode(const Json& json,
                                                 const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.required<double>("time"), reader.value<std::string>("title", "")};
}

Json JsonCoder<YouTubeChapter>::encode(const YouTubeChapter& chapter) {
    return {{"time", chapter.time}, {"title", chapter.title}};
}

YouTubeMetadataConversationTurn
JsonCoder<YouTubeMetadataConversationTurn>::decode(const Json& json,
                                                   const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.required<Role>("role"), reader.value<std::string>("text", "")};
}

Json JsonCoder<YouTubeMetadataConversationTurn>::encode(
    const YouTubeMetadataConversationTurn& turn) {
    return {{"role", encodeJson(turn.role)}, {"text", turn.text}};
}

ProjectExportSettings JsonCoder<ProjectExportSettings>::decode(const Json& json,
                                                               const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    const ProjectExportSettings defaults;
    ProjectExportSettings settings;
    const auto text = [&reader](const char* key, const std::string& fallback) {
        return reader.value<std::string>(key, fallback);
    };
    settings.uploadToYouTube = reader.value<bool>("uploadToYouTube", defaults.uploadToYouTube);
    settings.saveLocalCopy = reader.value<bool>("saveLocalCopy", defaults.saveLocalCopy);
    settings.location = text("location", defaults.location);
    settings.format = text("format", defaults.format);
    settings.quality = text("quality", defaults.quality);
    settings.privacy = text("privacy", defaults.privacy);
    settings.audience = text("audience", defaults.audience);
    settings.category = text("category", defaults.category);
    settings.language = text("language", defaults.language);
    settings.license = text("license", defaults.license);
    settings.tags = text("tags", defaults.tags);
    settings.paidPromotion = reader.value<bool>("paidPromotion", defaults.paidPromotion);
    settings.containsSyntheticMedia =
        reader.value<bool>("containsSyntheticMedia", defaults.containsSyntheticMedia);
    settings.youtubeTitle = text("youtubeTitle", defaults.youtubeTitle);
    settings.youtubeDescription = text("youtubeDescription", defaults.youtubeDescription);
    settings.youtubeMetadataPrompt = text("youtubeMetadataPrompt", defaults.youtubeMetadataPrompt);
    settings.youtubeChapters = reader.value<std::vector<YouTubeChapter>>("youtubeChapters", {});
    settings.metadataConversation =
        reader.value<std::vector<YouTubeMetadataConversationTurn>>("metadataConversation", {});
    return settings;
}

Json JsonCoder<ProjectExportSettings>::encode(const ProjectExportSettings& settings) {
    return {{"uploadToYouTube", settings.uploadToYouTube},
            {"saveLocalCopy", settings.saveLocalCopy},
            {"location", settings.location},
            {"format", settings.format},
            {"quality", settings.quality},
            {"privacy", settings.privacy},
            {"audience", settings.audience},
            {"category", settings.category},
            {"language", settings.language},
            {"license", settings.license},
            {"tags", settings.tags},
            {"paidPromotion", settings.paidPromotion},
            {"containsSyntheticMedia", settings.containsSyntheticMedia},
            {"youtubeTitle", settings.youtubeTitle},
            {"youtubeDescription", settings.youtubeDescription},
            {"youtubeMetadataPrompt", settings.youtubeMetadataPrompt},
            {"youtubeChapters", encodeJson(settings.youtubeChapters)},
            {"metadataConversation", encodeJson(settings.metadataConversation)}};
}

} // namespace orvelle
