#include "PanelTestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <algorithm>
#include <cstdio>

QString PanelTestSupport::saveArtifact(const QImage &image, const QString &name)
{
    QString folder = qEnvironmentVariable("QK_TEST_ARTIFACTS");
    if (folder.isEmpty())
        folder =
            QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("test-artifacts"));
    if (!QDir().mkpath(folder))
        return QString();
    const QString path = QDir(folder).filePath(name + QStringLiteral(".png"));
    if (!image.save(path, "PNG"))
        return QString();
    std::printf("Screenshot saved to %s\n", qPrintable(path));
    return path;
}

int PanelTestSupport::brightestLevel(const QImage &image, const QRect &rect)
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

bool PanelTestSupport::writePdf(const QString &path, const QString &text)
{
    const QByteArray stream = "BT /F1 18 Tf 72 720 Td (" + text.toLatin1() + ") Tj ET";
    const QList<QByteArray> objects = {
        "<< /Type /Catalog /Pages 2 0 R >>",
        "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Contents 4 0 R "
        "/Resources << /Font << /F1 5 0 R >> >> >>",
        "<< /Length " + QByteArray::number(stream.size()) + " >>\nstream\n" + stream +
            "\nendstream",
        "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>",
    };
    QByteArray pdf = "%PDF-1.4\n";
    QList<qsizetype> offsets;
    for (qsizetype i = 0; i < objects.size(); ++i) {
        offsets << pdf.size();
        pdf += QByteArray::number(i + 1) + " 0 obj\n" + objects.at(i) + "\nendobj\n";
    }
    const qsizetype xref = pdf.size();
    pdf += "xref\n0 " + QByteArray::number(objects.size() + 1) + "\n0000000000 65535 f \n";
    for (qsizetype offset : offsets)
        pdf += QByteArray::number(offset).rightJustified(10, '0') + " 00000 n \n";
    pdf += "trailer\n<< /Size " + QByteArray::number(objects.size() + 1) +
           " /Root 1 0 R >>\nstartxref\n" + QByteArray::number(xref) + "\n%%EOF\n";
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(pdf) == pdf.size();
}
