#include "QKError.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

/** The pattern every error domain follows: its own domain, headline and reasons by code. */
class TestDeviceError : public QKError
{
public:
    using QKError::QKError;

    QString domain() const override { return QStringLiteral("TestDeviceError"); }
    QString alertMessage() const override { return QStringLiteral("A test device error occurred"); }
    QString failureReason() const override
    {
        switch (code()) {
        case 1:
            return QStringLiteral("the device could not be detected.");
        case 2:
            return QStringLiteral("the connection could not be established.");
        default:
            return QStringLiteral("an unknown error occurred.");
        }
    }
};

} // namespace

TEST(QKError, baseClassTextsComeFromItsUserInfo)
{
    const QKError plain(12);
    EXPECT_EQ(plain.domain(), QStringLiteral("QKError"));
    EXPECT_EQ(plain.code(), 12);
    EXPECT_TRUE(plain.action().isEmpty());
    EXPECT_EQ(plain.alertMessage(), QStringLiteral("An error occurred"));
    EXPECT_TRUE(plain.failureReason().isEmpty());
    EXPECT_EQ(plain.localizedDescription(), QStringLiteral("An error occurred."));

    const QKError explained(3, QStringLiteral("Saving the catalogue"),
                            {{QString(QKError::FailureReasonKey), QStringLiteral("disk full.")}});
    EXPECT_EQ(explained.action(), QStringLiteral("Saving the catalogue"));
    EXPECT_EQ(explained.localizedDescription(), QStringLiteral("An error occurred: disk full."));

    const QKError wrongType(3, QString(), {{QString(QKError::FailureReasonKey), 42}});
    EXPECT_TRUE(wrongType.failureReason().isEmpty());
}

TEST(QKError, subclassSuppliesDomainHeadlineAndReasonPerCode)
{
    const std::unique_ptr<QKError> detected =
        std::make_unique<TestDeviceError>(1, QStringLiteral("Connecting to a test device"));
    EXPECT_EQ(detected->domain(), QStringLiteral("TestDeviceError"));
    EXPECT_EQ(detected->action(), QStringLiteral("Connecting to a test device"));
    EXPECT_EQ(detected->localizedDescription(),
              QStringLiteral("A test device error occurred: the device could not be detected."));
    EXPECT_EQ(TestDeviceError(2).failureReason(),
              QStringLiteral("the connection could not be established."));
    EXPECT_EQ(TestDeviceError(99).failureReason(), QStringLiteral("an unknown error occurred."));
}

TEST(QKError, equalityNeedsDomainCodeActionAndUserInfo)
{
    const TestDeviceError error(1, QStringLiteral("Connecting"));
    TestDeviceError copy(5);
    copy = error;
    EXPECT_TRUE(copy.isEqual(error));
    EXPECT_EQ(copy.localizedDescription(), error.localizedDescription());

    EXPECT_FALSE(error.isEqual(QKError(1, QStringLiteral("Connecting"))));
    EXPECT_FALSE(error.isEqual(TestDeviceError(2, QStringLiteral("Connecting"))));
    EXPECT_FALSE(error.isEqual(TestDeviceError(1, QStringLiteral("Sending"))));
    EXPECT_FALSE(error == TestDeviceError(1, QStringLiteral("Connecting"), {{"port", 2}}));
}
