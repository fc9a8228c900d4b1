#pragma once

#include "QKPluginValidationProtocol.h"

#include <chrono>
#include <memory>

/**
 * Loads plug-in descriptions in validator processes, so that a plug-in that crashes or hangs
 * takes a validator down instead of the host.
 *
 * Requests are numbered in the order they are submitted, and next() hands back their replies
 * in that same order, while up to the given number of validators work through the queue at
 * once. A validator that crashes, answers nonsense or runs past the deadline is killed; its
 * request gets a reply that did not load, and a fresh validator takes the next request.
 * Everything runs on the calling thread: next() waits in poll(), it runs no event loop.
 */
class QKPluginValidatorPool
{
public:
    using Request = QKPluginValidationProtocol::Request;
    using Reply = QKPluginValidationProtocol::Reply;

    QKPluginValidatorPool(const QString &program, int maximumValidators,
                          std::chrono::milliseconds deadline);
    ~QKPluginValidatorPool();
    QKPluginValidatorPool(const QKPluginValidatorPool &) = delete;
    QKPluginValidatorPool &operator=(const QKPluginValidatorPool &) = delete;

    /** The validator program that came with the library; empty when it cannot be found.
     *  QK_PLUGIN_VALIDATOR in the environment names another one. */
    static QString defaultProgram();

    void submit(const Request &request);
    /** Requests submitted whose replies next() has not handed back yet. */
    qsizetype pendingCount() const;
    /** The reply to the oldest pending request, waiting for it when needed. */
    Reply next();

private:
    struct Private;
    std::unique_ptr<Private> d;
};
