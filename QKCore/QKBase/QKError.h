#pragma once

#include "QKBaseGlobal.h"

#include <QString>
#include <QVariantMap>

/**
 * An error value: a code within a domain, what was being done when it happened, and
 * optional user information.
 *
 * The texts shown to the user come from the class: a subclass per error domain overrides
 * domain(), alertMessage() and failureReason() (usually one reason per code) and keeps the
 * constructor:
 *
 *     class QKWiiRemoteError : public QKError {
 *     public:
 *         using QKError::QKError;
 *         QString domain() const override { return QStringLiteral("QKWiiRemoteError"); }
 *         ...
 *     };
 *
 * Copying through the base class keeps only the base's texts, so pass errors by reference.
 */
class QKBASE_EXPORT QKError
{
public:
    /** The user information key whose string the base failureReason() answers. */
    static constexpr QLatin1StringView FailureReasonKey{"NSLocalizedFailureReason"};

    explicit QKError(int code = 0, const QString &action = QString(),
                     const QVariantMap &userInfo = QVariantMap());
    virtual ~QKError();
    QKError(const QKError &) = default;
    QKError &operator=(const QKError &) = default;

    /** The error domain: the class's name; "QKError" for the base class. */
    virtual QString domain() const;
    int code() const { return m_code; }
    /** What was being done when the error happened ("Connecting to a Wii Remote");
     *  may be empty. */
    QString action() const { return m_action; }
    QVariantMap userInfo() const { return m_userInfo; }

    /** The headline for an alert; "An error occurred" for the base class. */
    virtual QString alertMessage() const;
    /** Why it failed, as a sentence fragment ending in a full stop ("the SDP query
     *  failed."). The base class answers the string under FailureReasonKey, else empty. */
    virtual QString failureReason() const;

    /** The alert message and the failure reason joined by ": " ("A Wii Remote error
     *  occurred: the SDP query failed."); without a reason, the alert message and ".". */
    QString localizedDescription() const;

    /** Same domain, code, action and user information. */
    bool isEqual(const QKError &other) const;
    bool operator==(const QKError &other) const { return isEqual(other); }

private:
    int m_code;
    QString m_action;
    QVariantMap m_userInfo;
};
