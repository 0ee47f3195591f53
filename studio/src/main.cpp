// morvane-studio [FILE [--transcript T.json]]: Morvane's desktop window. A file given on the command line is
// opened as if dropped on the preview.

#include <QApplication>
#include <QCommandLineParser>
#include <QStyleFactory>
#include <clocale>
#include <filesystem>
#include <thread>

#include "morvane/engine/cache/media_cache_store.hpp"
#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/intelligence/model/language_model.hpp"
#include "studio_window.hpp"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    // Qt takes the user's locale for the C library too; Morvane's own numbers never depend on it, and
    // libraries below that read numbers with the C library must keep reading "0.55" as a number.
    std::setlocale(LC_NUMERIC, "C");
    QApplication::setApplicationName(QStringLiteral("Morvane Studio"));
    QApplication::setApplicationVersion(QStringLiteral(MORVANE_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("morvane-studio"));
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Morvane: drop a file, pick a cut, export."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument(QStringLiteral("file"), QStringLiteral("A recording to open"),
                                 QStringLiteral("[file]"));
    const QCommandLineOption transcript(QStringLiteral("transcript"),
                                        QStringLiteral("The recording's transcript (JSON)"),
                                        QStringLiteral("file"));
    parser.addOption(transcript);
    parser.process(app);

    // The media cache is trimmed to its budget while the window comes up; the thread is joined at exit.
    const std::jthread evict([] {
        morvane::engine::MediaCacheStore::evictIfNeeded(morvane::engine::MediaCacheStore::launchBudgetBytes);
    });

    morvane::PreferencesStore preferences;
    morvane::intelligence::HttpLanguageModelService model(
        morvane::intelligence::LanguageModelConnection::fromPreferences(preferences));
    morvane::studio::StudioWindow window({.preferences = preferences, .languageModel = &model});
    window.show();

    const QStringList files = parser.positionalArguments();
    if (!files.isEmpty()) {
        const std::filesystem::path media = files.front().toStdString();
        if (parser.isSet(transcript)) {
            window.openRecording(media, parser.value(transcript).toStdString());
        } else {
            window.openFiles({media});
        }
    }
    return QApplication::exec();
}
