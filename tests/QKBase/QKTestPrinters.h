#pragma once

// Readable failure messages for the Qt types the QKBase tests compare.

#include <QByteArray>
#include <QDebug>
#include <QRectF>
#include <QString>
#include <QUrl>
#include <QVariant>

#include <ostream>

inline void PrintTo(const QString &value, std::ostream *out)
{
    *out << '"' << value.toStdString() << '"';
}

inline void PrintTo(const QByteArray &value, std::ostream *out)
{
    *out << "0x" << value.toHex().toStdString();
}

inline void PrintTo(const QVariant &value, std::ostream *out)
{
    QString text;
    QDebug(&text) << value;
    *out << text.toStdString();
}

inline void PrintTo(const QRectF &value, std::ostream *out)
{
    *out << "QRectF(" << value.x() << ", " << value.y() << ", " << value.width() << ", "
         << value.height() << ')';
}

inline void PrintTo(const QUrl &value, std::ostream *out)
{
    *out << value.toString().toStdString();
}
