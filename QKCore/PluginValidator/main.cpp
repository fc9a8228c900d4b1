// The plug-in validator: loads the descriptions the host sends, one at a time, and answers
// with what each load learnt. A plug-in that crashes or hangs takes this process down, not
// the host; the host starts another one for the next plug-in.

#include "QKAUDescription.h"
#include "QKPluginValidationProtocol.h"
#include "QKVSTDescription.h"

#include <QCoreApplication>

#include <cerrno>
#include <exception>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using namespace QKPluginValidationProtocol;

template<typename Description> Reply load(const QVariantMap &state)
{
    Description description = Description::descriptionWithState(state);
    description.load();
    Reply reply;
    reply.loaded = true;
    reply.state = description.state();
    return reply;
}

Reply answer(const Request &request)
{
    try {
        if (request.kind == QLatin1String("au"))
            return load<QKAUDescription>(request.state);
        if (request.kind == QLatin1String("vst"))
            return load<QKVSTDescription>(request.state);
        Reply reply;
        reply.failure = QStringLiteral("unknown kind of plug-in \"%1\"").arg(request.kind);
        return reply;
    } catch (const std::exception &error) {
        Reply reply;
        reply.failure = QString::fromLocal8Bit(error.what());
        return reply;
    }
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    MessageReader reader;
    char buffer[4096];
    for (;;) {
        std::optional<QByteArray> message = reader.take();
        if (!message) {
            if (reader.isCorrupt())
                return 2;
            const ssize_t n = ::recv(ValidatorSocket, buffer, sizeof buffer, 0);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                return 0; // the host is done with us
            reader.append(buffer, n);
            continue;
        }
        const std::optional<Request> request = decodeRequest(*message);
        if (!request)
            return 2;
        if (!sendAll(ValidatorSocket, frame(encode(answer(*request)))))
            return 0;
    }
}
