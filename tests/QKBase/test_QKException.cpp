#include "QKException.h"
#include "QKTestPrinters.h"

#include <QCoreApplication>
#include <QEvent>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <optional>

namespace {

const QEvent::Type throwEvent = QEvent::Type(QEvent::User + 7);

// Not exported from the test program, so only its debug information can name it.
Q_NEVER_INLINE void throwFromTheTest()
{
    throw QKException(QStringLiteral("thrown on purpose"));
}
const int ThrowLine = __LINE__ - 2;

class ThrowingReceiver : public QObject
{
public:
    Q_NEVER_INLINE bool event(QEvent *event) override
    {
        if (event->type() == throwEvent)
            throwFromTheTest();
        return QObject::event(event);
    }
};

// Delivers an event straight to the receiver, past QKApplication::notify's own catch.
std::optional<QKException> exceptionFromAnEventHandler()
{
    ThrowingReceiver receiver;
    QEvent event(throwEvent);
    try {
        receiver.event(&event);
    } catch (const QKException &exception) {
        return exception;
    }
    return std::nullopt;
}

Q_NEVER_INLINE QKException makeException()
{
    return QKException(QStringLiteral("made here"));
}

Q_NEVER_INLINE QString readTraceElsewhere(const QKException &exception)
{
    return exception.stackTrace();
}

Q_NEVER_INLINE QString traceFromHere()
{
    return QKException::currentStackTrace();
}

} // namespace

TEST(QKException, stackTraceNamesTheThrowerWithItsSourceLine)
{
    const std::optional<QKException> exception = exceptionFromAnEventHandler();
    ASSERT_TRUE(exception.has_value());
    const QStringList frames = exception->stackTrace().split(QLatin1Char('\n'));
    ASSERT_GE(frames.size(), 3);
    // Innermost first: the function that made the exception, then its caller.
    EXPECT_TRUE(frames[0].contains(QLatin1String("throwFromTheTest()"))) << frames[0].toStdString();
    EXPECT_TRUE(frames[0].contains(QStringLiteral("(test_QKException.cpp:%1)").arg(ThrowLine)))
        << frames[0].toStdString();
    EXPECT_TRUE(frames[0].startsWith(QLatin1String("0   tst_QKBase "))) << frames[0].toStdString();
    EXPECT_TRUE(frames[1].contains(QLatin1String("ThrowingReceiver::event(QEvent*)")))
        << frames[1].toStdString();

    static const QRegularExpression line(QStringLiteral("^\\d+ +\\S+ +0x[0-9a-f]{16} \\S.*$"));
    for (const QString &frame : frames)
        EXPECT_TRUE(line.match(frame).hasMatch()) << frame.toStdString();
}

TEST(QKException, exportedFunctionsShowTheirOffsetAndUnnamedOnesTheModuleOffset)
{
    // A signal reaches its slot from Qt's exported signal function through a helper that Qt
    // neither exports nor describes in debug information.
    QObject sender;
    QString trace;
    QObject::connect(&sender, &QObject::objectNameChanged,
                     [] { throw QKException(QStringLiteral("thrown from a slot")); });
    try {
        sender.setObjectName(QStringLiteral("renamed"));
    } catch (const QKException &exception) {
        trace = exception.stackTrace();
    }
    static const QRegularExpression exported(
        QStringLiteral("^\\d+ +libQt6Core\\.so\\.6 +0x[0-9a-f]{16} "
                       "QObject::objectNameChanged\\(.*\\) \\+ \\d+$"),
        QRegularExpression::MultilineOption);
    static const QRegularExpression unnamed(
        QStringLiteral(
            "^\\d+ +libQt6Core\\.so\\.6 +0x[0-9a-f]{16} libQt6Core\\.so\\.6 \\+ 0x[0-9a-f]+$"),
        QRegularExpression::MultilineOption);
    EXPECT_TRUE(exported.match(trace).hasMatch()) << trace.toStdString();
    EXPECT_TRUE(unnamed.match(trace).hasMatch()) << trace.toStdString();
}

TEST(QKException, traceIsTakenWhereTheExceptionIsMadeAndSharedByCopies)
{
    const QKException exception = makeException();
    const QKException copy = exception;
    const QString trace = readTraceElsewhere(copy);
    EXPECT_TRUE(trace.section(QLatin1Char('\n'), 0, 0).contains(QLatin1String("makeException()")))
        << trace.toStdString();
    EXPECT_FALSE(trace.contains(QLatin1String("readTraceElsewhere"))) << trace.toStdString();
    EXPECT_EQ(exception.stackTrace(), trace);
    EXPECT_EQ(copy.what(), std::string("made here"));
}

TEST(QKException, currentStackTraceStartsAtTheCaller)
{
    const QString trace = traceFromHere();
    EXPECT_TRUE(trace.section(QLatin1Char('\n'), 0, 0).contains(QLatin1String("traceFromHere()")))
        << trace.toStdString();
}
