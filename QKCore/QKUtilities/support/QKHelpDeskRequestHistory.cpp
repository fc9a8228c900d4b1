#include "QKHelpDeskRequestHistory.h"

#include <QDateTime>
#include <QLocale>
#include <QTextCharFormat>
#include <QTextCursor>
#include <QTextDocument>

namespace {

constexpr double PointSize = 12.0;
const QColor Orange(255, 128, 0);

QTextCharFormat helvetica(bool bold, bool italic)
{
    QTextCharFormat format;
    format.setFontFamilies({QStringLiteral("Helvetica")});
    format.setFontPointSize(PointSize);
    format.setFontWeight(bold ? QFont::Bold : QFont::Normal);
    format.setFontItalic(italic);
    return format;
}

} // namespace

void QKHelpDeskRequestHistory::render(const QVariantMap &request, QTextDocument *document)
{
    document->clear();
    QTextCursor cursor(document);
    const QVariantList history = request.value(QStringLiteral("history")).toList();
    for (auto it = history.crbegin(); it != history.crend(); ++it) {
        const QVariantMap event = it->toMap();
        if (event.value(QStringLiteral("fPublic")).toString().toInt() == 0 ||
            !event.contains(QStringLiteral("tNote")))
            continue;
        const bool staff = event.value(QStringLiteral("xPerson")).toString().toInt() != 0;
        const QTextCharFormat date = dateFormat(staff);
        const QTextCharFormat note = noteFormat(staff);
        cursor.insertText(
            formattedDate(event.value(QStringLiteral("dtGMTChange")).toString().toLongLong()),
            date);
        cursor.insertText(QStringLiteral("\n"), date);
        cursor.insertText(event.value(QStringLiteral("tNote")).toString(), note);
        cursor.insertText(QStringLiteral("\n\n"), note);
    }
}

QString QKHelpDeskRequestHistory::formattedDate(qint64 secondsSince1970)
{
    // The help desk writes English dates whatever the user's language.
    return QLocale::c().toString(QDateTime::fromSecsSinceEpoch(secondsSince1970, Qt::LocalTime),
                                 QStringLiteral("ddd MMM dd, yyyy hh:mm AP"));
}

QTextCharFormat QKHelpDeskRequestHistory::dateFormat(bool staff)
{
    QTextCharFormat format = helvetica(true, false);
    if (staff)
        format.setForeground(Orange);
    return format;
}

QTextCharFormat QKHelpDeskRequestHistory::noteFormat(bool staff)
{
    return helvetica(false, staff);
}
