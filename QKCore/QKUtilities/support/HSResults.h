#pragma once

#include "QKUtilitiesGlobal.h"

#include <QStringList>
#include <QVariant>

class QByteArray;

/**
 * One reply of the help desk API, parsed into an array or a dictionary of strings: the
 * category list, the request list of a search, or the numbers of a new or updated request.
 *
 * A reply that does not begin with "<?xml" (an HTML error page, an empty body) gives a null
 * result; every look-up on it answers nothing, as on an empty reply.
 */
class QKUTILITIES_EXPORT HSResults
{
public:
    /** A null result. */
    HSResults() = default;
    /**
     * Parses @p data: "request", "history_events" and "category" elements become
     * dictionaries, "history" an array, and the children of the "results" wrapper go to the
     * root, an array when @p returnsArray is true, else a dictionary.
     */
    HSResults(const QByteArray &data, bool returnsArray);

    /** True when the reply was not XML. */
    bool isNull() const { return !m_results.isValid(); }
    /** The parsed QVariantList or QVariantMap; invalid when the reply was not XML. */
    QVariant results() const { return m_results; }

    /** The "xRequest" of the first request of an array result, or of a dictionary result;
     *  empty when there is none. */
    QString requestID() const;
    /** The request numbers in reply order; without @p includeClosed, only those whose
     *  "fOpen" is non-zero. */
    QStringList requestIDs(bool includeClosed) const;
    /** The first request whose "xRequest" is @p requestID; empty when none is. */
    QVariantMap requestForID(const QString &requestID) const;
    /** True when the request numbered @p requestID is open; false when it is unknown. */
    bool requestIsOpenForID(const QString &requestID) const;

private:
    QVariant m_results;
};

Q_DECLARE_METATYPE(HSResults)
