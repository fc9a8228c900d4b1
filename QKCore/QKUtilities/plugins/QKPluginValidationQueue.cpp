#include "QKPluginValidationQueue.h"

#include "QKApplicationLog.h"

#include <QThread>

namespace {

// A plug-in that takes longer than this to open is taken for hung.
constexpr std::chrono::seconds Deadline{10};

} // namespace

std::optional<QKPluginValidationQueue>
QKPluginValidationQueue::create(const QString &kind, const QString &logDomain, ApplyReply apply)
{
    const QString program = QKPluginValidatorPool::defaultProgram();
    if (program.isEmpty()) {
        QKApplicationLog::sharedLog()->warning(
            QKApplicationLogContext(logDomain),
            QStringLiteral("the plug-in validator program is missing; plug-ins are loaded in "
                           "this process"));
        return std::nullopt;
    }
    return QKPluginValidationQueue(program, kind, std::move(apply));
}

QKPluginValidationQueue::QKPluginValidationQueue(const QString &program, const QString &kind,
                                                 ApplyReply apply)
    : m_kind(kind), m_apply(std::move(apply))
{
    const int validators = std::max(1, QThread::idealThreadCount());
    m_pool = std::make_shared<QKPluginValidatorPool>(program, validators, Deadline);
    // Enough queued to keep every validator busy, few enough that the catalogue's entries
    // are loaded soon after they are saved.
    m_window = 2 * validators;
}

void QKPluginValidationQueue::load(qsizetype index, const QVariantMap &state)
{
    while (m_pool->pendingCount() >= m_window)
        applyNext();
    m_indexes.push_back(index);
    m_pool->submit({m_kind, state});
}

void QKPluginValidationQueue::finish()
{
    while (m_pool->pendingCount() > 0)
        applyNext();
}

void QKPluginValidationQueue::applyNext()
{
    const QKPluginValidatorPool::Reply reply = m_pool->next();
    const qsizetype index = m_indexes.front();
    m_indexes.pop_front();
    if (reply.loaded)
        m_apply(index, reply.state, QString());
    else
        m_apply(index, QVariantMap(),
                reply.failure.isEmpty() ? QStringLiteral("no reason given") : reply.failure);
}
