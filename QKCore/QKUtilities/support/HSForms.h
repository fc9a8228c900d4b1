#pragma once

#include "QKUtilitiesGlobal.h"

#include <QByteArray>
#include <QString>
#include <QVariantMap>

/** What a new support request says, as the support pane's form holds it. */
struct QKUTILITIES_EXPORT HSNewRequest
{
    QString firstName;
    QString lastName;
    QString email;
    QString phone;
    int category = 0;
    bool urgent = false;
    /** The application's name and short version string ("2.5b1"). */
    QString applicationName;
    QString version;
    QString body;
};

/**
 * The forms the support pane posts to the help desk API, one per operation, each with the
 * field "action" choosing it. Values are text: number fields are decimal integers, and the
 * flags "fUrgent" and "Custom4" are "1" when present and left out otherwise.
 */
class QKUTILITIES_EXPORT HSForms
{
public:
    /** {"action": "categories"}. */
    static QVariantMap categories();
    /**
     * "new": the contact fields as typed, "xCategory", "fUrgent" only when urgent,
     * "Custom1" (application name), "Custom3" (version), "Custom4" only for a pre-release
     * version (one holding a lower-case letter, "2.4.0b2", "2.5rc1"), "tBody".
     */
    static QVariantMap newRequest(const HSNewRequest &request);
    /** "add_document" of the zip archive at @p archivePath, attached to the history entry
     *  @p requestHistoryID under @p name: its "body" is the archive's Base64 text, encoded
     *  from the file while the form is sent. */
    static QVariantMap addDocument(const QString &requestHistoryID, const QString &name,
                                   const QString &archivePath);
    /** "list": the requests filed under @p email, outside the help desk's trash. */
    static QVariantMap list(const QString &email);
    /** "update": the customer's reply @p body to request @p requestID. */
    static QVariantMap update(const QString &requestID, const QString &body);
};
