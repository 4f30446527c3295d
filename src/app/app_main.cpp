#include "app/app_main.h"

#include "app/application.h"
#include "app/theme.h"
#include "platform/process/helper_process_registry.h"

#include <unistd.h>

#include <QApplication>
#include <QSocketNotifier>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>

namespace {

int signalPipe[2] = {-1, -1};

void forwardSignal(int) {
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(signalPipe[1], &byte, 1);
}

void printUsage() {
    std::puts("Usage: orvelle-app [--record | DOCUMENT]\n\n"
              "Opens the editor on a take (its movie or its .take.json), a project (.orvelle)\n"
              "or a movie; with --record, the recorder; without either, the start window with\n"
              "New Recording and the recent documents. Takes that a previous run left\n"
              "unfinished are offered for recovery first.");
}

} // namespace

namespace orvelle {

int runApplication(int argc, char** argv, ApplicationOptions options) {
    std::optional<std::filesystem::path> document;
    bool record = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            printUsage();
            return 0;
        }
        if (std::strcmp(argv[i], "--record") == 0) {
            record = true;
            continue;
        }
        if (argv[i][0] == '-' && argv[i][1] != '\0' && !document) {
            // Qt's own options (-platform, -style, ...) are Qt's to read.
            continue;
        }
        if (!document && argv[i][0] != '-') {
            document = std::filesystem::path(argv[i]);
        }
    }

    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Orvelle"));
    QApplication::setApplicationDisplayName(QStringLiteral("Orvelle"));
    QApplication::setDesktopFileName(QStringLiteral("com.orvelle.Orvelle"));
    orvelle::Theme::apply(application);

    orvelle::Application shell(std::move(options));

    // SIGTERM and SIGINT end the application as Quit does, without questions; the
    // handler only writes a byte that the event loop reads.
    if (::pipe(signalPipe) == 0) {
        struct sigaction action {};
        action.sa_handler = forwardSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        sigaction(SIGTERM, &action, nullptr);
        sigaction(SIGINT, &action, nullptr);
        auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &application);
        QObject::connect(notifier, &QSocketNotifier::activated, &application, [&shell] {
            char byte = 0;
            [[maybe_unused]] const auto read = ::read(signalPipe[0], &byte, 1);
            shell.quit(false);
        });
    }

    shell.start(document, record);
    const int status = QApplication::exec();
    orvelle::HelperProcessRegistry::terminateAll();
    return status;
}

} // namespace orvelle
