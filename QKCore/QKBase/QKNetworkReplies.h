#pragma once

#include "QKBaseGlobal.h"

#include <QNetworkRequest>
#include <QString>

#include <chrono>

class QNetworkReply;
class QUrl;

namespace QKNetworkReplies {

/**
 * True when @p reply ended without a whole HTTP response: no connection, a connection
 * dropped before the reply was complete, no bytes moving for idleTimeout(), an abort. Qt
 * reports error statuses (404, 500) as errors too, but a server that sent one has answered.
 */
QKBASE_EXPORT bool isTransportFailure(const QNetworkReply *reply);

/** Why @p reply failed; names the idle timeout when that ended it. */
QKBASE_EXPORT QString errorString(const QNetworkReply *reply);
/** The error of a transfer with @p url abandoned after @p milliseconds without a byte moving. */
QKBASE_EXPORT QString idleTimeoutError(const QUrl &url, qint64 milliseconds);

constexpr std::chrono::milliseconds DefaultIdleTimeout{60000};

/**
 * How long a transfer may go without a byte moving either way before it is abandoned as a
 * transport failure; DefaultIdleTimeout unless set. Without one, Qt waits for a server that
 * never answers for as long as the connection stays open.
 */
QKBASE_EXPORT std::chrono::milliseconds idleTimeout();
/** Sets idleTimeout() for every request prepared from now on, on any thread. */
QKBASE_EXPORT void setIdleTimeout(std::chrono::milliseconds timeout);
/** @p request with idleTimeout() as its transfer timeout. */
QKBASE_EXPORT QNetworkRequest withIdleTimeout(QNetworkRequest request);

} // namespace QKNetworkReplies
