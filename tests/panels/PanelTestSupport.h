#pragma once

// Helpers shared by the panel tests: readable failures, saved screenshots, pixel checks.

#include <QImage>
#include <QRect>
#include <QString>

#include <ostream>

inline void PrintTo(const QString &value, std::ostream *out)
{
    *out << '"' << value.toStdString() << '"';
}

inline void PrintTo(const QRect &value, std::ostream *out)
{
    *out << "QRect(" << value.x() << ", " << value.y() << ", " << value.width() << "x"
         << value.height() << ")";
}

inline void PrintTo(const QPoint &value, std::ostream *out)
{
    *out << "QPoint(" << value.x() << ", " << value.y() << ")";
}

inline void PrintTo(const QSize &value, std::ostream *out)
{
    *out << "QSize(" << value.width() << "x" << value.height() << ")";
}

namespace PanelTestSupport {

/** Writes @p image as "<name>.png" into $QK_TEST_ARTIFACTS, else "test-artifacts" beside
 *  the test executable, prints the path and returns it; empty when it cannot be written. */
QString saveArtifact(const QImage &image, const QString &name);

/** The brightest grey level (the largest of red, green and blue) of the opaque pixels of
 *  @p rect in @p image. */
int brightestLevel(const QImage &image, const QRect &rect);

/** Writes a small valid PDF with one page saying @p text to @p path. */
bool writePdf(const QString &path, const QString &text);

} // namespace PanelTestSupport
