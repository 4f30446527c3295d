#pragma once

// The application's whole run, from the command line to the end of its event loop, for
// orvelle-app and for builds that give it other devices (a test's camera).

#include "app/application.h"

namespace orvelle {

// orvelle-app [--record | DOCUMENT]: the editor opened on a take, a project or a movie,
// the recorder, or the start window. Returns the exit status.
int runApplication(int argc, char** argv, ApplicationOptions options = {});

} // namespace orvelle
