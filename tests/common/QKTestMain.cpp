#include "QKTestEnvironment.h"

#include "QKAlert.h"
#include "QKApplication.h"
#include "QKUserDefaults.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdlib>

namespace {
QString g_homePath;
}

QString QKTestEnvironment::homePath()
{
    return g_homePath;
}

QString QKTestEnvironment::sourcePath(const QString &relativePath)
{
    return QDir(QStringLiteral(QK_TESTS_SOURCE_DIR)).filePath(relativePath);
}

QString QKTestEnvironment::homeFile(const QString &name)
{
    return QDir(g_homePath).filePath(name);
}

bool QKTestEnvironment::waitFor(const std::function<bool()> &done, int msecs)
{
    const QDeadlineTimer deadline(msecs);
    while (!done() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return done();
}

QByteArray QKTestEnvironment::readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool QKTestEnvironment::writeAll(const QString &path, const QByteArray &data)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

QProcessEnvironment QKTestEnvironment::crashingChildEnvironment()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const QString sanitizerOptions = environment.value(QStringLiteral("ASAN_OPTIONS"));
    environment.insert(QStringLiteral("ASAN_OPTIONS"),
                       sanitizerOptions + QStringLiteral(":handle_segv=0:handle_sigbus=0:"
                                                         "handle_sigfpe=0:handle_sigill=0:"
                                                         "handle_abort=0"));
    return environment;
}

__attribute__((no_sanitize("null"))) void QKTestEnvironment::writeThrough(int *address)
{
    *static_cast<volatile int *>(address) = 42;
}

int main(int argc, char **argv)
{
    // The host's resources live in this static library; nothing else would pull them in.
    Q_INIT_RESOURCE(TestHost);

    // Every test process gets a HOME of its own before anything reads the environment,
    // so no test touches the developer's settings, logs or caches.
    QTemporaryDir home;
    if (!home.isValid())
        return 2;
    g_homePath = home.path();
    const QByteArray homeBytes = QFile::encodeName(g_homePath);
    setenv("HOME", homeBytes.constData(), 1);
    // The XDG folders then follow HOME, also in tests that move HOME themselves.
    for (const char *variable : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME",
                                 "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"})
        unsetenv(variable);
    // The application's temporary folder lives under the temporary path and the help desk
    // empties it at start-up, so parallel test processes must not share one.
    QDir(g_homePath).mkpath(QStringLiteral("tmp"));
    setenv("TMPDIR", (homeBytes + "/tmp").constData(), 1);
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        setenv("QT_QPA_PLATFORM", "offscreen", 1);

    ::testing::InitGoogleTest(&argc, argv);
    QKApplication app(argc, argv);
    // No test may ever block on a modal window; tests that expect alerts script answers.
    QKAlert::setAnswerer([](const QKAlertRequest &) { return 0; });
    QKFilePanels::setAnswerer([](const QKFilePanelRequest &, bool) { return QStringList(); });
    return RUN_ALL_TESTS();
}
