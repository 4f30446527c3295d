#include "cli/commands.h"
#include "cli/interrupt.h"
#include "cli/online_input.h"
#include "cli/output.h"
#include "core/cancellation.h"
#include "core/date.h"
#include "online/music_download_cache.h"
#include "online/music_library.h"
#include "online/online_url.h"
#include "platform/secrets/secret_store.h"

#include <algorithm>
#include <iostream>
#include <sstream>

namespace orvelle::cli {

namespace fs = std::filesystem;

namespace {

Json accountJson(const GoogleOAuthAccount& account) {
    Json json = encodeJson(account);
    json["displayName"] = account.displayName();
    return json;
}

std::vector<std::string> splitList(const std::string& text) {
    std::vector<std::string> items;
    std::stringstream stream(text);
    for (std::string item; std::getline(stream, item, ',');) {
        item.erase(0, item.find_first_not_of(' '));
        item.erase(item.find_last_not_of(' ') + 1);
        if (!item.empty()) {
            items.push_back(item);
        }
    }
    return items;
}

template <class E>
E choice(const Arguments& arguments, std::string_view option,
         std::initializer_list<std::pair<std::string_view, E>> choices, E fallback) {
    const auto text = arguments.value(option);
    if (!text) {
        return fallback;
    }
    std::string names;
    for (const auto& [name, value] : choices) {
        if (*text == name) {
            return value;
        }
        names += (names.empty() ? "" : ", ") + std::string(name);
    }
    throw UsageError("The option " + std::string(option) + " takes one of " + names + ", not \"" +
                     *text + "\".");
}

// ---- account ----------------------------------------------------------------------------

int runAccountStatus(const Arguments& arguments) {
    RunLoop mainThread;
    const auto account = googleAccount(mainThread);
    const auto credential = account->storedCredential();
    const fs::path clientFile = GoogleOAuthClientConfig::defaultFile();
    if (arguments.flag("--json")) {
        Json json{{"connected", credential.has_value()},
                  {"store", account->storeKind()},
                  {"clientFile", clientFile.string()},
                  {"clientFileExists", fs::exists(clientFile)}};
        json["account"] = credential ? accountJson(credential->account) : Json();
        json["accessTokenExpiresAt"] =
            credential ? Json(credential->token.expiresAt.iso8601()) : Json();
        printJson(json);
        return 0;
    }
    if (credential) {
        std::cout << "Connected to Google as " << credential->account.displayName() << " ("
                  << account->storeKind() << ").\n";
    } else {
        std::cout << "No Google account is connected. Run 'orvelle account sign-in'.\n";
        if (!fs::exists(clientFile)) {
            std::cout << "Signing in needs the OAuth client file of a desktop application at "
                      << clientFile.string() << ".\n";
        }
    }
    return 0;
}

int runAccountSignIn(const Arguments& arguments) {
    const fs::path clientFile = GoogleOAuthClientConfig::defaultFile();
    if (!fs::exists(clientFile)) {
        throw Error(
            std::string(GoogleOAuthError(GoogleOAuthErrorCode::missingClientConfig).what()) +
            " Put the OAuth client file of a desktop application (from the Google Cloud "
            "console) at " +
            clientFile.string() + ".");
    }
    RunLoop mainThread;
    GoogleOAuthController::Configuration configuration;
    if (const auto seconds = arguments.integer("--timeout")) {
        if (*seconds < 1) {
            throw UsageError("The option --timeout takes a number of seconds, at least 1.");
        }
        configuration.connectionTimeout = std::chrono::seconds(*seconds);
    }
    configuration.openBrowser = [](const std::string& url) {
        std::cerr << "Opening Google sign-in in your browser. If none opens, visit:\n"
                  << url << "\n";
        GoogleOAuthController::openInBrowser(url);
    };
    GoogleOAuthController account(mainThread, openDefaultSecretStore(), configuration);
    InterruptStop interrupt;
    account.connect();
    while (account.isConnectionRunning()) {
        mainThread.runFor(std::chrono::milliseconds(50));
        if (interrupt.interrupted()) {
            account.disconnect();
        }
    }
    mainThread.runFor(std::chrono::milliseconds(0));
    if (interrupt.interrupted()) {
        std::cerr << "orvelle account sign-in: cancelled; no account was connected.\n";
        return kInterruptedStatus;
    }
    if (const auto& message = account.errorMessage().value()) {
        throw Error(*message);
    }
    const auto& signedIn = account.account().value();
    if (!signedIn) {
        throw Error("Google sign-in did not finish. Try connecting again.");
    }
    if (arguments.flag("--json")) {
        printJson({{"connected", true},
                   {"account", accountJson(*signedIn)},
                   {"store", account.storeKind()}});
    } else {
        std::cout << "Connected to Google as " << signedIn->displayName() << ".\n";
    }
    return 0;
}

int runAccountSignOut(const Arguments& arguments) {
    RunLoop mainThread;
    const auto account = googleAccount(mainThread);
    const bool wasConnected = account->isConnected();
    InterruptStop interrupt;
    const auto failure = account->signOut(interrupt.token());
    if (arguments.flag("--json")) {
        Json json{{"wasConnected", wasConnected}, {"revoked", wasConnected && !failure}};
        json["revocationError"] = failure ? Json(*failure) : Json();
        printJson(json);
        return 0;
    }
    if (!wasConnected) {
        std::cout << "No Google account was connected.\n";
    } else if (failure) {
        std::cout << "Signed out here; Google could not be told (" << *failure
                  << "). You can remove Orvelle's access in your Google account's security "
                     "settings.\n";
    } else {
        std::cout << "Signed out, and Google revoked Orvelle's access.\n";
    }
    return 0;
}

// ---- upload -----------------------------------------------------------------------------

int runUpload(const Arguments& arguments) {
    const fs::path movie = fs::absolute(arguments.positional(0, "the movie to upload"));
    const YouTubeUploadRequest request = uploadRequestFromArguments(arguments, movie);
    const OnlineServiceEndpoints endpoints = OnlineServiceEndpoints::load();
    RunLoop mainThread;
    const auto account = googleAccount(mainThread);
    InterruptStop interrupt;
    std::string token;
    YouTubeUploadResult result;
    try {
        token = account->validAccessToken(interrupt.token());
        ProgressReporter progress("Uploading " + movie.filename().string());
        result = YouTubeUploadClient::upload(
            request, token, [&](double fraction) { progress.update(fraction); },
            uploadClientOptions(endpoints), interrupt.token());
        progress.finish();
    } catch (const CancellationError&) {
        std::cerr << "\norvelle upload: cancelled; nothing was published.\n";
        return kInterruptedStatus;
    }
    const std::string watch = YouTubeUploadClient::watchURL(result, endpoints.youtubeWatchURL);
    if (arguments.flag("--json")) {
        printJson({{"videoID", result.videoID}, {"watchURL", watch}, {"file", movie.string()}});
    } else {
        std::cout << "Uploaded to YouTube: " << watch << "\n";
    }
    return 0;
}

// ---- music ------------------------------------------------------------------------------

MusicLibraryClient musicClient() {
    MusicLibraryClient::Options options;
    options.baseURL = OnlineServiceEndpoints::load().musicLibraryURL;
    return MusicLibraryClient(options);
}

OpenverseCredentials musicCredentials() {
    MusicCredentialsStore store(openDefaultSecretStore());
    if (auto credentials = store.load()) {
        return *credentials;
    }
    throw Error(std::string("The music library has no key yet. ") + kMusicEmailExplanation +
                " Run 'orvelle music register EMAIL' once.");
}

Json trackJson(const MusicTrack& track) {
    Json json = encodeJson(track);
    json["cachedFile"] = Json();
    if (const auto file = MusicDownloadCache::cachedFileURL(track.id)) {
        json["cachedFile"] = file->string();
    }
    return json;
}

int runMusicRegister(const Arguments& arguments) {
    const std::string& email = arguments.positional(0, "the e-mail address");
    if (email.find('@') == std::string::npos) {
        throw UsageError("\"" + email + "\" is not an e-mail address.");
    }
    InterruptStop interrupt;
    MusicLibraryClient client = musicClient();
    const OpenverseCredentials credentials = client.registerClient(email, interrupt.token());
    MusicCredentialsStore store(openDefaultSecretStore());
    store.save(credentials);
    if (arguments.flag("--json")) {
        printJson({{"registered", true}, {"name", credentials.name}, {"store", store.kind()}});
    } else {
        std::cout << "The music library's key is kept in the " << store.kind() << ".\n";
    }
    return 0;
}

int runMusicSearch(const Arguments& arguments) {
    const auto vibeName = arguments.value("--vibe");
    if (vibeName.has_value() == !arguments.positional().empty()) {
        throw UsageError("Give either words to search for or --vibe NAME.");
    }
    const OpenverseCredentials credentials = musicCredentials();
    MusicLibraryClient client = musicClient();
    InterruptStop interrupt;
    std::vector<MusicTrack> tracks;
    if (vibeName) {
        const auto vibe = enumFromName<MusicVibe>(*vibeName);
        if (!vibe) {
            std::string names;
            for (const auto& entry : jsonNames(MusicVibe{})) {
                names += (names.empty() ? "" : ", ") + std::string(entry.name);
            }
            throw UsageError("The option --vibe takes one of " + names + ".");
        }
        tracks = client.search(*vibe, credentials, interrupt.token());
    } else {
        std::string query;
        for (const auto& word : arguments.positional()) {
            query += (query.empty() ? "" : " ") + word;
        }
        const std::string token = client.accessToken(credentials, interrupt.token());
        tracks = client.addingWaveforms(client.search(query, token, interrupt.token()), token,
                                        interrupt.token());
    }
    if (arguments.flag("--json")) {
        Json list = Json::array();
        for (const auto& track : tracks) {
            list.push_back(trackJson(track));
        }
        printJson({{"tracks", list}});
        return 0;
    }
    if (tracks.empty()) {
        std::cout << kMusicNoTracksMessage << "\n";
    }
    for (const auto& track : tracks) {
        std::cout << track.id << "  " << track.title;
        if (track.creator) {
            std::cout << " by " << *track.creator;
        }
        if (track.duration) {
            std::cout << " (" << static_cast<int>(*track.duration) << " s)";
        }
        std::cout << "\n";
    }
    return 0;
}

int runMusicGet(const Arguments& arguments) {
    const std::string& id = arguments.positional(0, "the track's identifier");
    const bool json = arguments.flag("--json");
    std::optional<fs::path> file = MusicDownloadCache::cachedFileURL(id);
    const bool wasCached = file.has_value();
    std::optional<MusicTrack> track;
    if (!file) {
        const OpenverseCredentials credentials = musicCredentials();
        MusicLibraryClient client = musicClient();
        InterruptStop interrupt;
        try {
            track = client.track(id, credentials, interrupt.token());
            ProgressReporter progress("Downloading " + track->title);
            const std::string data = client.downloadTrack(
                *track, [&](double fraction) { progress.update(fraction); }, interrupt.token());
            progress.finish();
            std::string extension;
            if (track->audioURL) {
                const auto parts = URLComponents::parse(*track->audioURL);
                extension = fs::path(parts ? parts->path : "").extension().string();
                if (!extension.empty()) {
                    extension.erase(0, 1);
                }
            }
            file = MusicDownloadCache::store(data, id, extension, track->title);
        } catch (const CancellationError&) {
            std::cerr << "\norvelle music get: cancelled; nothing was kept.\n";
            return kInterruptedStatus;
        }
    }
    const auto entries = MusicDownloadCache::entries();
    const auto entry = entries.find(id);
    if (json) {
        Json result{{"id", id}, {"file", file->string()}, {"cached", wasCached}};
        if (entry != entries.end()) {
            result["sha256"] = entry->second.sha256;
            result["byteSize"] = entry->second.byteSize;
            result["title"] = entry->second.title;
        }
        printJson(result);
    } else {
        std::cout << (wasCached ? "In the cache: " : "Downloaded: ") << file->string() << "\n";
    }
    return 0;
}

int runMusicCache(const Arguments& arguments) {
    if (arguments.flag("--clear")) {
        MusicDownloadCache::clear();
    }
    const auto entries = MusicDownloadCache::entries();
    const std::uint64_t total = MusicDownloadCache::totalSizeBytes();
    if (arguments.flag("--json")) {
        Json list = Json::array();
        for (const auto& [id, entry] : entries) {
            list.push_back({{"id", id},
                            {"fileName", entry.fileName},
                            {"sha256", entry.sha256},
                            {"byteSize", entry.byteSize},
                            {"title", entry.title}});
        }
        printJson({{"folder", MusicDownloadCache::directoryURL().string()},
                   {"entries", list},
                   {"totalSizeBytes", total}});
        return 0;
    }
    for (const auto& [id, entry] : entries) {
        std::cout << id << "  " << entry.title << "  " << entry.byteSize << " bytes\n";
    }
    std::cout << entries.size() << " tracks, " << total << " bytes in "
              << MusicDownloadCache::directoryURL().string() << "\n";
    return 0;
}

} // namespace

std::unique_ptr<GoogleOAuthController> googleAccount(Executor& mainThread) {
    return std::make_unique<GoogleOAuthController>(mainThread, openDefaultSecretStore(),
                                                   GoogleOAuthController::Configuration{});
}

std::vector<OptionSpec> uploadOptionSpecs() {
    return {{"--title", true},    {"--description", true}, {"--privacy", true}, {"--tags", true},
            {"--category", true}, {"--language", true},    {"--license", true}, {"--made-for-kids"},
            {"--paid-placement"}, {"--synthetic-media"}};
}

YouTubeUploadRequest uploadRequestFromArguments(const Arguments& arguments, const fs::path& file) {
    YouTubeUploadRequest request;
    request.fileURL = file;
    request.title = arguments.value("--title").value_or(file.stem().string());
    request.description = arguments.value("--description").value_or("");
    request.privacyStatus = choice(arguments, "--privacy",
                                   {{"private", YouTubeUploadPrivacyStatus::privateVideo},
                                    {"unlisted", YouTubeUploadPrivacyStatus::unlisted},
                                    {"public", YouTubeUploadPrivacyStatus::publicVideo}},
                                   YouTubeUploadPrivacyStatus::privateVideo);
    request.license = choice(arguments, "--license",
                             {{"youtube", YouTubeUploadLicense::youtube},
                              {"creativeCommon", YouTubeUploadLicense::creativeCommon}},
                             YouTubeUploadLicense::youtube);
    if (const auto tags = arguments.value("--tags")) {
        request.tags = splitList(*tags);
    }
    request.categoryID = arguments.value("--category");
    request.defaultLanguage = arguments.value("--language");
    request.madeForKids = arguments.flag("--made-for-kids");
    request.hasPaidProductPlacement = arguments.flag("--paid-placement");
    request.containsSyntheticMedia = arguments.flag("--synthetic-media");
    return request;
}

YouTubeUploadClient::Options uploadClientOptions(const OnlineServiceEndpoints& endpoints) {
    YouTubeUploadClient::Options options;
    options.endpointURL = endpoints.youtubeUploadURL;
    return options;
}

Command accountStatusCommand() {
    return {"account status",
            "the Google account connected for YouTube uploads",
            "orvelle account status [--json]\n\n"
            "Says whether a Google account is connected, which one, where its credential is\n"
            "kept (the desktop's Secret Service, or a private file when none runs) and when\n"
            "the access token expires. Never prints a token.",
            {{"--json"}},
            runAccountStatus};
}

Command accountSignInCommand() {
    return {"account sign-in",
            "connect a Google account for YouTube uploads (in the browser)",
            "orvelle account sign-in [--timeout SECONDS] [--json]\n\n"
            "Opens Google's consent page in the browser (xdg-open) and waits, up to 180 s\n"
            "or --timeout, for its answer on a listener at 127.0.0.1. Needs the OAuth client\n"
            "file of a desktop application (as the Google Cloud console gives it) at\n"
            "$XDG_DATA_HOME/Orvelle/google-oauth-client.json. The tokens are kept in the\n"
            "Secret Service, or in a private file (mode 0600) when none runs.",
            {{"--timeout", true}, {"--json"}},
            runAccountSignIn};
}

Command accountSignOutCommand() {
    return {"account sign-out",
            "revoke Orvelle's access and forget the Google account",
            "orvelle account sign-out [--json]\n\n"
            "Asks Google to revoke Orvelle's access, then deletes the kept credential\n"
            "whatever Google answered.",
            {{"--json"}},
            runAccountSignOut};
}

Command uploadCommand() {
    std::vector<OptionSpec> options = uploadOptionSpecs();
    options.push_back({"--json"});
    return {
        "upload", "upload a movie to YouTube with the connected account",
        "orvelle upload MOVIE [--title T] [--description D] [--privacy private|unlisted|public]\n"
        "               [--tags a,b] [--category ID] [--language CODE]\n"
        "               [--license youtube|creativeCommon] [--made-for-kids]\n"
        "               [--paid-placement] [--synthetic-media] [--json]\n\n"
        "Uploads MOVIE by YouTube's resumable protocol in 8 MiB chunks; a dropped\n"
        "connection, a time-out or a server error asks the server what it has and goes\n"
        "on from there. The title defaults to the file's name, privacy to private.\n"
        "Prints the watch page; --json prints videoID and watchURL.",
        options, runUpload};
}

Command musicRegisterCommand() {
    return {"music register",
            "get the music library's free key for an e-mail address",
            "orvelle music register EMAIL [--json]\n\n"
            "Openverse asks for an email address to issue the free API key that Orvelle uses\n"
            "to search. There's no account, no password, and nothing to confirm. The key is\n"
            "kept in the Secret Service, or in a private file when none runs.",
            {{"--json"}},
            runMusicRegister};
}

Command musicSearchCommand() {
    return {"music search",
            "find openly licensed music (by words or by vibe)",
            "orvelle music search WORDS... | --vibe VIBE [--json]\n\n"
            "Lists tracks of 30 to 120 s in formats the editor plays, with their licences\n"
            "and waveforms. VIBE is one of cleanPulse, startupBeat, darkSynth, trapClicks,\n"
            "glassBounce, ambientDrive, cinematicLift, playfulPop (up to 24 tracks).",
            {{"--vibe", true}, {"--json"}},
            runMusicSearch};
}

Command musicGetCommand() {
    return {"music get",
            "download a track into the music cache",
            "orvelle music get ID [--json]\n\n"
            "Gives the cached file of the track, or downloads it into the cache\n"
            "($XDG_DATA_HOME/Orvelle/MusicCache) with its checksum in index.json.",
            {{"--json"}},
            runMusicGet};
}

Command musicCacheCommand() {
    return {"music cache",
            "list (or clear) the downloaded music",
            "orvelle music cache [--clear] [--json]\n\n"
            "Lists the tracks in the music cache and the space it takes; --clear empties it.",
            {{"--clear"}, {"--json"}},
            runMusicCache};
}

} // namespace orvelle::cli
