#pragma once

// Screenshots of the panels, saved for a person to look at, and pixel checks on them.

#include "QKTestPrinters.h"

#include <QCoreApplication>
#include <QDir>
#include <QImage>
#include <QWidget>

#include <algorithm>
#include <cstdio>

namespace PanelTestSupport {

/** Writes @p image as "<name>.png" into $QK_TEST_ARTIFACTS, else "test-artifacts" beside
 *  the test executable, and prints the path. */
inline void saveArtifact(const QImage &image, const QString &name)
{
    const QString folder = qEnvironmentVariable(
        "QK_TEST_ARTIFACTS", QCoreApplication::applicationDirPath() + u"/test-artifacts"_s);
    const QString path = QDir(folder).filePath(name + u".png"_s);
    if (QDir().mkpath(folder) && image.save(path, "PNG"))
        std::printf("Screenshot saved to %s\n", qPrintable(path));
}

/** @p window as drawn, saved as the artifact @p name. */
inline QImage screenshot(QWidget *window, const QString &name)
{
    const QImage shot = window->grab().toImage().convertToFormat(QImage::Format_ARGB32);
    saveArtifact(shot, name);
    return shot;
}

/** Each corner pixel of @p image is fully transparent: the window's corners are rounded. */
inline bool cornersAreTransparent(const QImage &image)
{
    const QRect r = image.rect();
    const QPoint corners[] = {r.topLeft(), r.topRight(), r.bottomLeft(), r.bottomRight()};
    return std::ranges::all_of(corners, [&](QPoint p) { return qAlpha(image.pixel(p)) == 0; });
}

} // namespace PanelTestSupport
