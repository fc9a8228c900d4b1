#pragma once

#include "QKUtilitiesGlobal.h"

#include <QVariantMap>

class QTextCharFormat;
class QTextDocument;

/**
 * Draws the public history of one help desk request for the support pane, newest event
 * first: per event a date line and the note, the customer's in Helvetica, the staff's with
 * an orange date and a slanted note, all at 12 points.
 */
class QKUTILITIES_EXPORT QKHelpDeskRequestHistory
{
public:
    /**
     * Replaces the content of @p document with the history of @p request (a request of a
     * "list" reply, its events under "history"). Events whose "fPublic" is 0 or that have
     * no "tNote" are left out; the document is empty when none is left.
     */
    static void render(const QVariantMap &request, QTextDocument *document);

    /** @p secondsSince1970 in the user's time zone as "Mon Jan 05, 2009 02:07 PM". */
    static QString formattedDate(qint64 secondsSince1970);
    /** The date line's style: bold, and orange for a staff member's event. */
    static QTextCharFormat dateFormat(bool staff);
    /** The note's style: plain for the customer's event, slanted for the staff's. */
    static QTextCharFormat noteFormat(bool staff);
};
