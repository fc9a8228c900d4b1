#pragma once

#include "QKBaseGlobal.h"

class QNetworkReply;

namespace QKNetworkReplies {

/**
 * True when @p reply ended without a whole HTTP response: no connection, a connection
 * dropped before the reply was complete, an abort. Qt reports error statuses (404, 500)
 * as errors too, but a server that sent one has answered.
 */
QKBASE_EXPORT bool isTransportFailure(const QNetworkReply *reply);

} // namespace QKNetworkReplies
