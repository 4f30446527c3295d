#pragma once

// What the commands of the online services share: the Google account (its controller over
// the secret store and the client file), the service addresses, and the upload's metadata
// from the command line.

#include "cli/arguments.h"
#include "core/executor.h"
#include "online/google_oauth_controller.h"
#include "online/online_endpoints.h"
#include "online/youtube_upload_client.h"

#include <filesystem>
#include <memory>
#include <vector>

namespace orvelle::cli {

// The account's controller on `mainThread`, with its credential in the Secret Service (or
// the private-file fallback) and the client file of the data folder.
std::unique_ptr<GoogleOAuthController> googleAccount(Executor& mainThread);

// The upload options of `orvelle upload` and `orvelle export --upload`.
std::vector<OptionSpec> uploadOptionSpecs();
// The upload of `file` with the options given; the title defaults to the file's name.
YouTubeUploadRequest uploadRequestFromArguments(const Arguments& arguments,
                                                const std::filesystem::path& file);
// The upload client's options for these endpoints.
YouTubeUploadClient::Options uploadClientOptions(const OnlineServiceEndpoints& endpoints);

} // namespace orvelle::cli
