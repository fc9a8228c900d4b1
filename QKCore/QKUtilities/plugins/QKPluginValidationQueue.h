#pragma once

#include "QKPluginValidatorPool.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>

/**
 * The loads of one validation run, done in validator processes. A catalogue hands over each
 * new entry as it appends it; the replies come back to it in that same order, each through
 * the given function, while up to one validator per core works ahead. An entry whose load
 * crashes or hangs its validator gets a reply that did not load.
 */
class QKPluginValidationQueue
{
public:
    /** Takes the state a load produced, or why the entry could not be loaded (its state then
     *  empty). */
    using ApplyReply =
        std::function<void(qsizetype index, const QVariantMap &state, const QString &failure)>;

    /** Nothing when the validator program cannot be found, which is logged under
     *  @p logDomain; the caller then loads in its own process. */
    static std::optional<QKPluginValidationQueue>
    create(const QString &kind, const QString &logDomain, ApplyReply apply);

    /** Queues the load of the entry at @p index of the catalogue, whose state is @p state. */
    void load(qsizetype index, const QVariantMap &state);
    /** Waits for every queued load and applies its reply. */
    void finish();

private:
    QKPluginValidationQueue(const QString &program, const QString &kind, ApplyReply apply);
    void applyNext();

    QString m_kind;
    ApplyReply m_apply;
    std::shared_ptr<QKPluginValidatorPool> m_pool;
    std::deque<qsizetype> m_indexes;
    int m_window;
};
