// The main() of every test program: a QCoreApplication (for event-loop
// tests; a QApplication for the widget tests) and a private home, so that no test reads or writes the real
// user's settings, index or documents.
#include "common/error_presenter.h"
#include "common/log.h"

#include <QCoreApplication>
#include <QDir>
#ifdef TROVARA_TEST_WIDGETS
#include <QApplication>
#endif

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <unistd.h>

int main(int argc, char** argv)
{
    char pattern[] = "/tmp/trovara-test-XXXXXX";
    const char* root = mkdtemp(pattern);
    if (!root) {
        std::perror("mkdtemp");
        return 1;
    }
    const std::string base(root);
    const std::pair<const char*, const char*> folders[] = {
        {"HOME", "/home"},
        {"XDG_CONFIG_HOME", "/home/.config"},
        {"XDG_DATA_HOME", "/home/.local/share"},
        {"XDG_CACHE_HOME", "/home/.cache"},
        {"XDG_STATE_HOME", "/home/.local/state"},
        {"XDG_RUNTIME_DIR", "/run"},
    };
    for (const auto& [variable, folder] : folders) {
        const std::string path = base + folder;
        QDir().mkpath(QString::fromStdString(path));
        setenv(variable, path.c_str(), 1);
    }
    chmod((base + "/run").c_str(), 0700);
    unsetenv("TROVARA_INDEX");
    // Log lines go nowhere unless a test captures them.
    trovara::log::setSink([](const QString&) {});
    // Errors are shown nowhere unless a test installs a presenter.
    trovara::setErrorPresenter([](const trovara::Error&) {});

#ifdef TROVARA_TEST_WIDGETS
    // Windows open nowhere, also when the build lists the tests.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication app(argc, argv);
#else
    QCoreApplication app(argc, argv);
#endif
    testing::InitGoogleTest(&argc, argv);
    const int status = RUN_ALL_TESTS();
    QDir(QString::fromStdString(base)).removeRecursively();
    return status;
}
