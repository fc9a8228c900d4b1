#include "QKError.h"

QKError::QKError(int code, const QString &action, const QVariantMap &userInfo)
    : m_code(code), m_action(action), m_userInfo(userInfo)
{}

QKError::~QKError() = default;

QString QKError::domain() const
{
    return QStringLiteral("QKError");
}

QString QKError::alertMessage() const
{
    return QStringLiteral("An error occurred");
}

QString QKError::failureReason() const
{
    const QVariant reason = m_userInfo.value(FailureReasonKey);
    return reason.typeId() == QMetaType::QString ? reason.toString() : QString();
}

QString QKError::localizedDescription() const
{
    const QString reason = failureReason();
    if (reason.isEmpty())
        return alertMessage() + u'.';
    return alertMessage() + QStringLiteral(": ") + reason;
}

bool QKError::isEqual(const QKError &other) const
{
    return m_code == other.m_code && domain() == other.domain() && m_action == other.m_action &&
           m_userInfo == other.m_userInfo;
}
