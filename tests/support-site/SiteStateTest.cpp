#include "SiteClient.h"

using SiteState = SiteTest;

TEST_F(SiteState, requestsAndDocumentsSurviveARestart)
{
    const QString baseURL = site.baseURL();
    const QVariantMap first = ok(newRequest("Before the restart", "kim@example.com")).toMap();
    const QByteArray document("PK\x05\x06" + QByteArray(18, '\0'));
    const QString documentNumber =
        ok({{"action", "add_document"},
            {"xRequestHistory", first.value("xRequestHistory").toString()},
            {"name", "system_profile"},
            {"mimetype", "application/zip"},
            {"body", QString::fromLatin1(document.toBase64())}})
            .toMap()
            .value("xDocument")
            .toString();
    ASSERT_FALSE(documentNumber.isEmpty());

    ASSERT_TRUE(site.restart()) << site.errorString().toStdString();
    EXPECT_EQ(site.baseURL(), baseURL) << "a restart keeps the port";
    const QVariantList found = listRequests("kim@example.com");
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(found.first().toMap().value("xRequest"), first.value("xRequest"));
    EXPECT_EQ(found.first().toMap().value("history").toList().first().toMap().value("tNote"),
              "Before the restart");
    EXPECT_EQ(get("/inspect/documents/" + documentNumber).body, document);

    const QVariantMap second = ok(newRequest("After the restart", "kim@example.com")).toMap();
    EXPECT_GT(second.value("xRequest").toLongLong(), first.value("xRequest").toLongLong());
    EXPECT_GT(second.value("xRequestHistory").toLongLong(),
              first.value("xRequestHistory").toLongLong());
    // The seed is written once: a restart must not add the sample requests again.
    EXPECT_EQ(listRequests("alex.martin@example.com").size(), 3);

    // SIGTERM ends the site cleanly.
    site.stop();
    EXPECT_EQ(site.lastExitCode(), 0);
}

TEST(SiteStateLauncher, pointsTheLibraryAtTheSiteWhileItRuns)
{
    qputenv("QK_SUPPORT_BASE_URL", "https://before.example");
    qunsetenv("QK_HELPDESK_API_URL");
    {
        QKSupportSiteProcess site;
        ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
        EXPECT_EQ(qEnvironmentVariable("QK_SUPPORT_BASE_URL"), site.baseURL());
        EXPECT_EQ(qEnvironmentVariable("QK_HELPDESK_API_URL"),
                  site.baseURL() + "/helpspot_api.php");
    }
    EXPECT_EQ(qEnvironmentVariable("QK_SUPPORT_BASE_URL"), "https://before.example");
    EXPECT_FALSE(qEnvironmentVariableIsSet("QK_HELPDESK_API_URL"));
}
