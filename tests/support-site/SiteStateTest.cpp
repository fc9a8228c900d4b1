#include "QKSupportSiteProcess.h"
#include "SiteClient.h"

#include <gtest/gtest.h>

namespace {

class SiteState : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString(); }

    /** Sends a new request from @p email; its numbers. */
    QVariantMap newRequest(const QString &email, const QString &body)
    {
        return post({{"action", "new"},
                     {"sFirstName", "Kim"},
                     {"sLastName", "Park"},
                     {"sEmail", email},
                     {"sPhone", ""},
                     {"xCategory", "2"},
                     {"Custom1", "Test Host"},
                     {"Custom3", "2.5b1"},
                     {"Custom4", "1"},
                     {"tBody", body}});
    }

    QVariantMap post(const MultipartBody &form)
    {
        const SiteResponse response = SiteClient::post(site.helpDeskAPIURL(), form);
        EXPECT_EQ(response.status, 200) << response.body.toStdString();
        return SiteClient::helpDesk(response.body).toMap();
    }

    QVariantList list(const QString &email)
    {
        const MultipartBody form({{"action", "list"}, {"sEmail", email}, {"fTrash", "0"}});
        return SiteClient::helpDesk(SiteClient::post(site.helpDeskAPIURL(), form).body, true)
            .toList();
    }

    QKSupportSiteProcess site{QKSupportSiteProcess::Environment::Keep};
};

} // namespace

TEST_F(SiteState, requestsAndDocumentsSurviveARestart)
{
    const QString baseURL = site.baseURL();
    const QVariantMap first = newRequest("kim@example.com", "Before the restart");
    const QByteArray document("PK\x05\x06" + QByteArray(18, '\0'));
    const QString documentNumber =
        post({{"action", "add_document"},
              {"xRequestHistory", first.value("xRequestHistory").toString()},
              {"name", "system_profile"},
              {"mimetype", "application/zip"},
              {"body", QString::fromLatin1(document.toBase64())}})
            .value("xDocument")
            .toString();
    ASSERT_FALSE(documentNumber.isEmpty());

    ASSERT_TRUE(site.restart()) << site.errorString().toStdString();
    EXPECT_EQ(site.baseURL(), baseURL) << "a restart keeps the port";
    const QVariantList found = list("kim@example.com");
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(found.first().toMap().value("xRequest"), first.value("xRequest"));
    EXPECT_EQ(found.first().toMap().value("history").toList().first().toMap().value("tNote"),
              "Before the restart");
    EXPECT_EQ(SiteClient::get(baseURL + "/inspect/documents/" + documentNumber).body, document);

    const QVariantMap second = newRequest("kim@example.com", "After the restart");
    EXPECT_GT(second.value("xRequest").toLongLong(), first.value("xRequest").toLongLong());
    EXPECT_GT(second.value("xRequestHistory").toLongLong(),
              first.value("xRequestHistory").toLongLong());
    // The seed is written once: a restart must not add the sample requests again.
    EXPECT_EQ(list("alex.martin@example.com").size(), 3);

    // SIGTERM ends the site cleanly.
    site.stop();
    EXPECT_EQ(site.lastExitCode(), 0);
}

TEST(SiteStateLauncher, pointsTheLibraryAtTheSite)
{
    qputenv("QK_SUPPORT_BASE_URL", "https://before.example");
    qunsetenv("QK_HELPDESK_API_URL");
    {
        QKSupportSiteProcess site;
        ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
        EXPECT_TRUE(site.baseURL().startsWith("http://127.0.0.1:"));
        EXPECT_EQ(qEnvironmentVariable("QK_SUPPORT_BASE_URL"), site.baseURL());
        EXPECT_EQ(qEnvironmentVariable("QK_HELPDESK_API_URL"), site.helpDeskAPIURL());
        EXPECT_EQ(site.helpDeskAPIURL(), site.baseURL() + "/helpspot_api.php");
        EXPECT_EQ(SiteClient::get(qEnvironmentVariable("QK_SUPPORT_BASE_URL") +
                                  "/manual_version.php?appCode=tsth&version=2")
                      .status,
                  200);
    }
    EXPECT_EQ(qEnvironmentVariable("QK_SUPPORT_BASE_URL"), "https://before.example");
    EXPECT_FALSE(qEnvironmentVariableIsSet("QK_HELPDESK_API_URL"));
}
