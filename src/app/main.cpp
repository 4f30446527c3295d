// orvelle-app [--record | DOCUMENT]: the editor, opened on a take, a project or a movie,
// the recorder, or the start window when none is named.

#include "app/app_main.h"

int main(int argc, char** argv) {
    return orvelle::runApplication(argc, argv);
}
