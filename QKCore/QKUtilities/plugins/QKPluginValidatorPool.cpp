#include "QKPluginValidatorPool.h"

#include <QFileInfo>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <deque>
#include <map>
#include <optional>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace {

using Clock = std::chrono::steady_clock;
using namespace QKPluginValidationProtocol;

constexpr auto ProgramName = "qk-plugin-validator";

Reply failedReply(const QString &failure)
{
    Reply reply;
    reply.failure = failure;
    return reply;
}

QString describeExit(int status)
{
    if (WIFSIGNALED(status))
        return QStringLiteral("the validator was stopped by signal %1 (%2)")
            .arg(WTERMSIG(status))
            .arg(QString::fromLocal8Bit(strsignal(WTERMSIG(status))));
    if (WIFEXITED(status))
        return QStringLiteral("the validator exited with status %1").arg(WEXITSTATUS(status));
    return QStringLiteral("the validator stopped");
}

struct Validator
{
    pid_t pid = -1;
    int socket = -1;
    MessageReader reader;
    std::optional<qsizetype> ticket;
    Clock::time_point started;
};

} // namespace

struct QKPluginValidatorPool::Private
{
    QString program;
    int maximumValidators;
    std::chrono::milliseconds deadline;

    std::deque<std::pair<qsizetype, Request>> queue;
    std::map<qsizetype, Reply> replies;
    std::vector<Validator> validators;
    qsizetype submitted = 0;
    qsizetype returned = 0;

    std::optional<Validator> spawn(QString *error);
    void dispatch();
    void waitForProgress();
    void readFrom(Validator &validator);
    // Kills the validator (when it still runs), reaps it and answers its request.
    void retire(Validator &validator, const QString &failure);
};

std::optional<Validator> QKPluginValidatorPool::Private::spawn(QString *error)
{
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
        *error = QString::fromLocal8Bit(strerror(errno));
        return std::nullopt;
    }
    // dup2 onto the same number would keep close-on-exec, so the child's end must not
    // already sit on the validator's descriptor.
    if (pair[1] == ValidatorSocket) {
        const int moved = ::fcntl(pair[1], F_DUPFD_CLOEXEC, ValidatorSocket + 1);
        ::close(pair[1]);
        pair[1] = moved;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pair[1], ValidatorSocket);
    // Plug-ins print to standard output; none of it may pass for the protocol or clutter
    // the host's own output, so the validator's goes where its errors go.
    posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    const QByteArray path = QFile::encodeName(program);
    char *argv[] = {const_cast<char *>(path.constData()), nullptr};
    pid_t pid = -1;
    const int result = ::posix_spawn(&pid, path.constData(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pair[1]);
    if (result != 0) {
        ::close(pair[0]);
        *error = QString::fromLocal8Bit(strerror(result));
        return std::nullopt;
    }
    Validator validator;
    validator.pid = pid;
    validator.socket = pair[0];
    return validator;
}

void QKPluginValidatorPool::Private::dispatch()
{
    while (!queue.empty()) {
        std::erase_if(validators, [](const Validator &v) { return v.pid < 0; });
        auto idle = std::find_if(validators.begin(), validators.end(),
                                 [](const Validator &v) { return !v.ticket; });
        if (idle == validators.end()) {
            if (int(validators.size()) >= maximumValidators)
                return;
            QString error;
            std::optional<Validator> started = spawn(&error);
            if (!started) {
                const qsizetype ticket = queue.front().first;
                queue.pop_front();
                replies[ticket] = failedReply(
                    QStringLiteral("cannot start the validator %1: %2").arg(program, error));
                continue;
            }
            validators.push_back(std::move(*started));
            idle = validators.end() - 1;
        }
        auto [ticket, request] = std::move(queue.front());
        queue.pop_front();
        idle->ticket = ticket;
        idle->started = Clock::now();
        if (!sendAll(idle->socket, frame(encode(request))))
            retire(*idle, QStringLiteral("the validator did not take the request"));
    }
}

void QKPluginValidatorPool::Private::waitForProgress()
{
    std::vector<pollfd> fds;
    std::vector<Validator *> owners;
    auto nearest = Clock::time_point::max();
    for (Validator &validator : validators) {
        if (!validator.ticket)
            continue;
        fds.push_back({validator.socket, POLLIN, 0});
        owners.push_back(&validator);
        nearest = std::min(nearest, validator.started + deadline);
    }
    if (fds.empty())
        return;
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(nearest - Clock::now());
    const int ready = ::poll(fds.data(), fds.size(), int(std::max<qint64>(0, wait.count())));
    if (ready < 0 && errno != EINTR)
        return;
    for (size_t i = 0; i < fds.size(); ++i) {
        if (fds[i].revents != 0)
            readFrom(*owners[i]);
    }
    const auto now = Clock::now();
    for (Validator *validator : owners) {
        if (validator->ticket && now >= validator->started + deadline)
            retire(*validator, QStringLiteral("the plug-in did not finish loading within %1 s")
                                   .arg(deadline.count() / 1000.0));
    }
    std::erase_if(validators, [](const Validator &v) { return v.pid < 0; });
}

void QKPluginValidatorPool::Private::readFrom(Validator &validator)
{
    char buffer[4096];
    const ssize_t n = ::recv(validator.socket, buffer, sizeof buffer, MSG_DONTWAIT);
    if (n < 0 && (errno == EINTR || errno == EAGAIN))
        return;
    if (n <= 0) {
        retire(validator, QString());
        return;
    }
    validator.reader.append(buffer, n);
    if (std::optional<QByteArray> message = validator.reader.take()) {
        std::optional<Reply> reply = decodeReply(*message);
        if (!reply) {
            retire(validator, QStringLiteral("the validator answered something unreadable"));
            return;
        }
        replies[*validator.ticket] = std::move(*reply);
        validator.ticket.reset();
    } else if (validator.reader.isCorrupt()) {
        retire(validator, QStringLiteral("the validator answered something unreadable"));
    }
}

void QKPluginValidatorPool::Private::retire(Validator &validator, const QString &failure)
{
    ::close(validator.socket);
    int status = 0;
    // A validator that closed its end is on its way out; give it a moment to say how.
    pid_t reaped = 0;
    for (int attempt = 0; failure.isEmpty() && attempt < 100 && reaped == 0; ++attempt) {
        reaped = ::waitpid(validator.pid, &status, WNOHANG);
        if (reaped == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (reaped == 0) {
        ::kill(validator.pid, SIGKILL);
        reaped = ::waitpid(validator.pid, &status, 0);
    }
    if (validator.ticket) {
        QString reason = failure;
        if (reason.isEmpty())
            reason = reaped > 0 ? describeExit(status) : QStringLiteral("the validator stopped");
        replies[*validator.ticket] = failedReply(reason);
    }
    validator.ticket.reset();
    validator.socket = -1;
    validator.pid = -1;
}

QKPluginValidatorPool::QKPluginValidatorPool(const QString &program, int maximumValidators,
                                             std::chrono::milliseconds deadline)
    : d(std::make_unique<Private>())
{
    d->program = program;
    d->maximumValidators = std::max(1, maximumValidators);
    d->deadline = deadline;
}

QKPluginValidatorPool::~QKPluginValidatorPool()
{
    for (Validator &validator : d->validators) {
        // Idle validators wait for a request; closing their socket ends them.
        ::close(validator.socket);
        ::kill(validator.pid, SIGKILL);
        ::waitpid(validator.pid, nullptr, 0);
    }
}

QString QKPluginValidatorPool::defaultProgram()
{
    const QString chosen = qEnvironmentVariable("QK_PLUGIN_VALIDATOR");
    if (!chosen.isEmpty())
        return chosen;
    Dl_info info{};
    if (::dladdr(reinterpret_cast<void *>(&QKPluginValidatorPool::defaultProgram), &info) == 0 ||
        !info.dli_fname)
        return QString();
    const QString libraryFolder = QFileInfo(QFile::decodeName(info.dli_fname)).absolutePath();
    // Installed, the validator sits in the helper folder; in a build tree, beside the library.
    for (const QString &candidate :
         {libraryFolder + QStringLiteral("/" QK_HELPER_FROM_LIBDIR "/") + ProgramName,
          libraryFolder + QStringLiteral("/") + ProgramName}) {
        const QFileInfo file(candidate);
        if (file.isFile() && file.isExecutable())
            return file.canonicalFilePath();
    }
    return QString();
}

void QKPluginValidatorPool::submit(const Request &request)
{
    d->queue.emplace_back(d->submitted++, request);
    d->dispatch();
}

qsizetype QKPluginValidatorPool::pendingCount() const
{
    return d->submitted - d->returned;
}

QKPluginValidatorPool::Reply QKPluginValidatorPool::next()
{
    if (pendingCount() == 0)
        return failedReply(QStringLiteral("nothing was asked"));
    const qsizetype ticket = d->returned;
    while (!d->replies.contains(ticket)) {
        d->waitForProgress();
        d->dispatch();
    }
    ++d->returned;
    Reply reply = std::move(d->replies[ticket]);
    d->replies.erase(ticket);
    return reply;
}
