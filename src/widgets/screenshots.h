// Pictures of the application for its documentation (scripts/screenshots):
// `trovara --screenshot NAME=FILE.png …` opens what the command line names,
// starts the first window's search, waits until its results and their
// thumbnails are in, renders each named scene into its file and quits.
//
// A scene sets the application up (a view, a panel, a sheet) and renders
// it. Scenes are listed in screenshotScenes(); add yours there.
#pragma once

#include <QObject>
#include <QPixmap>
#include <QString>

#include <functional>
#include <utility>
#include <vector>

namespace trovara::widgets {

class Application;
class DocumentWindow;

using ScreenshotScene = std::function<QPixmap(Application& application, DocumentWindow& window)>;

// Name → scene.
const std::vector<std::pair<QString, ScreenshotScene>>& screenshotScenes();

class ScreenshotRunner final : public QObject {
    Q_OBJECT

public:
    // `shots`: (scene name, output file) in order.
    ScreenshotRunner(Application& application, std::vector<std::pair<QString, QString>> shots,
                     QObject* parent = nullptr);

    // Starts when the first window is there; exits the event loop with 0
    // when every picture was written, else 1.
    void start();

private:
    void step();
    bool renderAll();

    Application& m_application;
    std::vector<std::pair<QString, QString>> m_shots;
    int m_turns = 0;
    bool m_started = false;
};

// Runs the event loop for a while, until the thumbnails asked for are in.
void settleForScreenshot(int milliseconds = 300);

}  // namespace trovara::widgets
