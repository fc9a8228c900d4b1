#include "QKError.h"
#include "QKTestSupport.h"

namespace {

/** The pattern every error domain follows: its own domain, headline and reasons by code. */
class TestDeviceError : public QKError
{
public:
    using QKError::QKError;

    QString domain() const override { return u"TestDeviceError"_s; }
    QString alertMessage() const override { return u"A test device error occurred"_s; }
    QString failureReason() const override
    {
        return code() == 1 ? u"the device could not be detected."_s : QString();
    }
};

} // namespace

TEST(QKError, descriptionJoinsHeadlineAndReason)
{
    const QKError plain(12);
    EXPECT_EQ(plain.domain(), u"QKError"_s);
    EXPECT_EQ(plain.localizedDescription(), u"An error occurred."_s);
    // The base class takes its reason from the user info, when it is text.
    const QKError explained(3, u"Saving"_s,
                            {{QString(QKError::FailureReasonKey), u"disk full."_s}});
    EXPECT_EQ(explained.localizedDescription(), u"An error occurred: disk full."_s);
    EXPECT_TRUE(
        QKError(3, {}, {{QString(QKError::FailureReasonKey), 42}}).failureReason().isEmpty());
    // A subclass supplies its own; the base class joins them.
    const std::unique_ptr<QKError> detected = std::make_unique<TestDeviceError>(1);
    EXPECT_EQ(detected->localizedDescription(),
              u"A test device error occurred: the device could not be detected."_s);
    EXPECT_EQ(TestDeviceError(2).localizedDescription(), u"A test device error occurred."_s);
}

TEST(QKError, equalityNeedsDomainCodeActionAndUserInfo)
{
    const TestDeviceError error(1, u"Connecting"_s);
    TestDeviceError copy(5);
    copy = error;
    EXPECT_TRUE(copy.isEqual(error));
    EXPECT_FALSE(error.isEqual(QKError(1, u"Connecting"_s)));
    EXPECT_FALSE(error.isEqual(TestDeviceError(2, u"Connecting"_s)));
    EXPECT_FALSE(error.isEqual(TestDeviceError(1, u"Sending"_s)));
    EXPECT_FALSE(error == TestDeviceError(1, u"Connecting"_s, {{"port", 2}}));
}
