// The export page's YouTube metadata in the test process on Qt's offscreen platform: a take
// that speaks, its transcript, and a stand-in language model helper that answers as a
// model would (the real helper and model are exercised in the local AI tests); what the
// draft and its revision leave in the project and on the page.

#include "app/application.h"
#include "app/editor_window.h"
#include "app/export_panel.h"
#include "app/timeline_view.h"
#include "local_ai/local_models.h"
#include "support/process_groups.h"
#include "support/spoken_take.h"
#include "support/temporary_directory.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QThread>

namespace orvelle {
namespace {

namespace fs = std::filesystem;

bool settle(const std::function<bool()>& predicate, int milliseconds = 60000) {
    QElapsedTimer timer;
    timer.start();
    while (!predicate()) {
        if (timer.elapsed() > milliseconds) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

TEST(PublishPanelTest, DraftsMetadataFromTheTranscriptAndRevisesItKeepingTheExchange) {
    const testing::TemporaryDirectory folder;
    // 36 s of take: three sentences 12 s apart, so that chapters fit.
    testing::TinyTakeOptions options;
    options.width = 320;
    options.height = 180;
    const testing::SpokenTake spoken = testing::writeSpokenTake(
        folder / "take",
        testing::passageWords("Welcome to the editor /11/ First we record a take /11/ Then we "
                              "export the movie /3/ done"),
        true, options);

    // The language model is installed (a file with the format's header) and the helper
    // answers with a draft: a shorter title when the prompt asks for one.
    std::string model = "GGUF";
    model.resize(4096, '\0');
    testing::writeTextFile(folder / "tiny.gguf", model);
    LocalModelInstaller::install(LocalModelCatalog::find("language"),
                                 (folder / "tiny.gguf").string());
    const fs::path helper = folder / "helper";
    testing::writeExecutableScript(
        helper, "#!/bin/bash\n"
                "prompt=''; previous=''\n"
                "for argument in \"$@\"; do\n"
                "  [ \"$previous\" = -f ] && prompt=$argument\n"
                "  previous=$argument\n"
                "done\n"
                "title='A tour of the editor, from take to movie'\n"
                "grep -q 'shorter title' \"$prompt\" && title='Editor tour'\n"
                "cat <<EOF\n"
                "{\"title\": \"$title\", \"description\": \"How a take becomes a movie.\",\n"
                " \"chapters\": [{\"time\": \"0:00\", \"title\": \"Welcome\"},\n"
                "   {\"time\": \"0:12\", \"title\": \"Recording\"},\n"
                "   {\"time\": \"0:24\", \"title\": \"Exporting\"}],\n"
                " \"tags\": [\"editor\", \"tutorial\"]}\n"
                "EOF\n");

    ApplicationOptions app;
    app.settingsURL = folder / "settings.json";
    app.lastEditorSettingsURL = folder / "last-editor-settings.json";
    app.presetsURL = folder / "presets.json";
    app.playback.player.withSound = false;
    app.languageModelHelper = helper;
    app.trayIcon = false;
    Application shell(app);
    shell.openDocument(spoken.take.manifestURL);
    ASSERT_TRUE(settle([&] { return !shell.editorWindows().empty(); }));
    EditorWindow& window = *shell.editorWindows().front();
    ExportPanel& panel = window.exportPanel();
    EditorStore& store = window.store();

    panel.requestDraft();
    ASSERT_TRUE(panel.isDrafting());
    ASSERT_TRUE(settle([&] { return !panel.isDrafting(); }));
    ASSERT_TRUE(store.project().exportSettings) << panel.draftStatusText().toStdString();
    ProjectExportSettings settings = *store.project().exportSettings;
    EXPECT_EQ(settings.youtubeTitle, "A tour of the editor, from take to movie")
        << panel.draftStatusText().toStdString();
    EXPECT_EQ(settings.tags, "editor, tutorial");
    ASSERT_EQ(settings.youtubeChapters.size(), 3u);
    EXPECT_DOUBLE_EQ(settings.youtubeChapters[1].time, 12);
    EXPECT_EQ(panel.chapterLines(),
              (QStringList{QStringLiteral("0:00  Welcome"), QStringLiteral("0:12  Recording"),
                           QStringLiteral("0:24  Exporting")}));

    // A revision sends the request with the draft and keeps the exchange.
    panel.requestDraft("make it a shorter title");
    ASSERT_TRUE(settle([&] { return !panel.isDrafting(); }));
    settings = *store.project().exportSettings;
    EXPECT_EQ(settings.youtubeTitle, "Editor tour") << panel.draftStatusText().toStdString();
    ASSERT_EQ(settings.metadataConversation.size(), 2u);
    EXPECT_EQ(settings.metadataConversation[0].text, "make it a shorter title");

    // The draft is the project's: the timeline shows its chapters.
    EXPECT_EQ(store.project().exportSettings->youtubeChapters.size(), 3u);
    window.closeWithoutPrompt();
}

} // namespace
} // namespace orvelle
