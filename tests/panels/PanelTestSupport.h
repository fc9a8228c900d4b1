#pragma once

// Helpers shared by the panel tests: saved screenshots and pixel checks.

#include "QKTestPrinters.h"

#include <QCoreApplication>
#include <QDir>
#include <QImage>
#include <QWidget>

#include <algorithm>
#include <cstdio>

namespace PanelTestSupport {

/** Writes @p image as "<name>.png" into $QK_TEST_ARTIFACTS, else "test-artifacts" beside
 *  the test executable, for a person to look at, and prints the path. */
inline void saveArtifact(const QImage &image, const QString &name)
{
    QString folder = qEnvironmentVariable("QK_TEST_ARTIFACTS");
    if (folder.isEmpty())
        folder = QCoreApplication::applicationDirPath() + u"/test-artifacts"_s;
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

/** The brightest grey level (the largest of red, green and blue) of the opaque pixels of
 *  @p rect in @p image. */
inline int brightestLevel(const QImage &image, const QRect &rect)
{
    int brightest = 0;
    const QRect area = rect.intersected(image.rect());
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            const QRgb pixel = image.pixel(x, y);
            if (qAlpha(pixel) == 255)
                brightest = std::max({brightest, qRed(pixel), qGreen(pixel), qBlue(pixel)});
        }
    }
    return brightest;
}

/** Each corner pixel of @p image is fully transparent: the window's corners are rounded. */
inline bool cornersAreTransparent(const QImage &image)
{
    const QRect r = image.rect();
    return qAlpha(image.pixel(r.topLeft())) == 0 && qAlpha(image.pixel(r.topRight())) == 0 &&
           qAlpha(image.pixel(r.bottomLeft())) == 0 && qAlpha(image.pixel(r.bottomRight())) == 0;
}

} // namespace PanelTestSupport
