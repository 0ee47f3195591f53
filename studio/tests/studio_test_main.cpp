// The studio tests run inside one QApplication on the offscreen platform (no display needed), with the
// preview's sound off and preferences kept in a folder of their own.

#include <gtest/gtest.h>

#include <QApplication>
#include <QStyleFactory>
#include <cstdio>

#include "morvane/testing/temp_dir.hpp"

namespace {

// The offscreen platform warns about window features it doesn't have; the tests don't need them.
void quietOffscreenWarnings(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (message.contains(QStringLiteral("does not support propagateSizeHints"))) return;
    std::fprintf(stderr, "%s\n", qPrintable(qFormatLogMessage(type, context, message)));
}

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("MORVANE_PREVIEW_AUDIO", "0");
    const morvane::testing::TempDir config;
    qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString(config.path().string()));
    const morvane::testing::TempDir cache;  // waveforms and proxies the windows make
    qputenv("XDG_CACHE_HOME", QByteArray::fromStdString(cache.path().string()));
    qInstallMessageHandler(quietOffscreenWarnings);
    QApplication app(argc, argv);
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
