#pragma once

// Readable test failures for every Qt type QDebug can print (QString, QVariant, QRect,
// containers of them, ...), and Qt's string literals (u"text"_s) for the tests.

#include <QDebug>

#include <ostream>

using namespace Qt::StringLiterals;

template<typename T>
requires requires(QDebug debug, const T &value)
{
    debug << value;
}
void PrintTo(const T &value, std::ostream *out)
{
    QString text;
    QDebug(&text).nospace() << value;
    *out << text.toStdString();
}
