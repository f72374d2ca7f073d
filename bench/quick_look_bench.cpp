// quick_look_bench: how long the quick look panel's worker takes to make
// the picture it shows, which is all the work between a selection and the
// picture on screen but one turn of the event loop.
//
//   quick_look_bench [--runs N]
//
//   pdf_first_page   a 40-page A4 PDF of text and shapes: load, count the
//                    pages, render the first one at the panel's bound
//   big_jpeg         a 6000 × 4000 JPEG scaled down while it is decoded
//   big_png          the same picture as PNG (no scaled decoding)
//   svg              an SVG drawing of 2,000 shapes rendered at its size
// Figures (median and worst of N runs, ms) go to standard output as Markdown.
#include "widgets/quick_look_controller.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QPdfWriter>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

using trovara::widgets::QuickLookController;

namespace {

void writePdf(const QString& path, int pages)
{
    QPdfWriter writer(path);
    writer.setPageSize(QPageSize(QPageSize::A4));
    QPainter painter(&writer);
    QRandomGenerator random(7);
    for (int page = 0; page < pages; ++page) {
        if (page > 0) {
            writer.newPage();
        }
        for (int line = 0; line < 60; ++line) {
            painter.drawText(QPointF(300, 300 + line * 200),
                             QStringLiteral("Line %1 of page %2: the harbour survey, soundings and tide tables.")
                                 .arg(line)
                                 .arg(page + 1));
        }
        for (int shape = 0; shape < 40; ++shape) {
            painter.fillRect(QRectF(random.bounded(8000), random.bounded(12000), 400, 300),
                             QColor::fromHsv(random.bounded(360), 160, 220));
        }
    }
}

QImage makePhoto(QSize size)
{
    QImage image(size, QImage::Format_RGB32);
    QRandomGenerator random(3);
    for (int y = 0; y < size.height(); ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < size.width(); ++x) {
            line[x] = qRgb((x / 7) % 256, (y / 5) % 256, static_cast<int>(random.bounded(64)) + 96);
        }
    }
    return image;
}

void writeSvg(const QString& path, int shapes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return;
    }
    QRandomGenerator random(5);
    QByteArray svg = "<svg xmlns='http://www.w3.org/2000/svg' width='1200' height='900'>";
    for (int i = 0; i < shapes; ++i) {
        svg += QStringLiteral("<circle cx='%1' cy='%2' r='%3' fill='hsl(%4,70%,60%)' opacity='0.6'/>")
                   .arg(random.bounded(1200))
                   .arg(random.bounded(900))
                   .arg(random.bounded(5, 60))
                   .arg(random.bounded(360))
                   .toUtf8();
    }
    svg += "</svg>";
    file.write(svg);
}

void measure(const char* name, const QString& path, QuickLookController::Kind kind, int runs)
{
    std::vector<double> times;
    QSize shown;
    QString problem;
    for (int run = 0; run < runs; ++run) {
        QElapsedTimer timer;
        timer.start();
        const QuickLookController::Picture picture =
            QuickLookController::readPicture(path, kind, QuickLookController::pictureBound());
        times.push_back(static_cast<double>(timer.nsecsElapsed()) / 1e6);
        shown = picture.image.size();
        problem = picture.problem;
    }
    std::sort(times.begin(), times.end());
    std::printf("| %s | %.1f | %.1f | %d × %d%s |\n", name, times[times.size() / 2], times.back(), shown.width(),
                shown.height(), problem.isEmpty() ? "" : qPrintable(QStringLiteral(" (") + problem + ")"));
}

}  // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    int runs = 10;
    const QStringList arguments = application.arguments();
    if (const qsizetype at = arguments.indexOf(QStringLiteral("--runs")); at >= 0 && at + 1 < arguments.size()) {
        runs = std::max(1, arguments[at + 1].toInt());
    }
    QTemporaryDir work;
    const QString pdf = work.filePath(QStringLiteral("survey.pdf"));
    const QString jpeg = work.filePath(QStringLiteral("photo.jpg"));
    const QString png = work.filePath(QStringLiteral("photo.png"));
    const QString svg = work.filePath(QStringLiteral("drawing.svg"));
    writePdf(pdf, 40);
    const QImage photo = makePhoto(QSize(6000, 4000));
    photo.save(jpeg, "JPEG", 90);
    photo.save(png, "PNG");
    writeSvg(svg, 2000);

    using Kind = QuickLookController::Kind;
    std::printf("| case | median ms | worst ms | shown |\n|---|---|---|---|\n");
    measure("pdf_first_page (40 pages)", pdf, Kind::Pdf, runs);
    measure("big_jpeg (6000 × 4000)", jpeg, Kind::Picture, runs);
    measure("big_png (6000 × 4000)", png, Kind::Picture, runs);
    measure("svg (2,000 shapes)", svg, Kind::Picture, runs);
    return 0;
}
