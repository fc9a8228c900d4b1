#include "QKException.h"
#include "QKTestPrinters.h"

#include <QCoreApplication>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <optional>

namespace {

// Not exported from the test program, so only its debug information can name it.
Q_NEVER_INLINE void throwFromTheTest()
{
    throw QKException(u"thrown on purpose"_s);
}
const int ThrowLine = __LINE__ - 2;

class ThrowingReceiver : public QObject
{
public:
    Q_NEVER_INLINE bool event(QEvent *event) override
    {
        if (event->type() == QEvent::User)
            throwFromTheTest();
        return QObject::event(event);
    }
};

Q_NEVER_INLINE QString traceFromHere()
{
    return QKException::currentStackTrace();
}

} // namespace

TEST(QKException, stackTraceIsTakenWhereMadeAndNamesTheThrowerWithItsSourceLine)
{
    // Delivered straight to the receiver, past QKApplication::notify's own catch.
    std::optional<QKException> exception;
    try {
        ThrowingReceiver receiver;
        QEvent event(QEvent::User);
        receiver.event(&event);
    } catch (const QKException &caught) {
        exception = caught;
    }
    ASSERT_TRUE(exception.has_value());
    const QStringList frames = exception->stackTrace().split(u'\n');
    ASSERT_GE(frames.size(), 3);
    // Innermost first: the function that made the exception, then its caller.
    EXPECT_TRUE(frames[0].startsWith(u"0   tst_QKBase "_s)) << frames[0].toStdString();
    EXPECT_TRUE(frames[0].contains(u"throwFromTheTest()"_s)) << frames[0].toStdString();
    EXPECT_TRUE(frames[0].contains(u"(test_QKException.cpp:%1)"_s.arg(ThrowLine)))
        << frames[0].toStdString();
    EXPECT_TRUE(frames[1].contains(u"ThrowingReceiver::event(QEvent*)"_s))
        << frames[1].toStdString();
    static const QRegularExpression line(u"^\\d+ +\\S+ +0x[0-9a-f]{16} \\S.*$"_s);
    for (const QString &frame : frames)
        EXPECT_TRUE(line.match(frame).hasMatch()) << frame.toStdString();

    EXPECT_EQ(QKException(*exception).stackTrace(), exception->stackTrace());
    EXPECT_TRUE(traceFromHere().section(u'\n', 0, 0).contains(u"traceFromHere()"_s))
        << "a current trace starts at its caller";
}
