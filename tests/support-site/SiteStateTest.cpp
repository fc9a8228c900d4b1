#include "SiteClient.h"

using SiteState = SiteTest;

TEST_F(SiteState, requestsAndDocumentsSurviveARestart)
{
    const QString baseURL = site.baseURL();
    const QVariantMap first = ok(newRequest("Before the restart", "kim@example.com")).toMap();
    const QByteArray document("PK\x05\x06" + QByteArray(18, '\0'));
    const QString documentNumber =
        ok(addDocument(first.value("xRequestHistory").toString(), "system_profile",
                       QString::fromLatin1(document.toBase64())))
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
    // The seed is written once: a restart must not add the sample requests again. Trashed
    // requests are listed only when asked for.
    const QString sample = u"alex.martin@example.com"_s;
    EXPECT_EQ(listRequests(sample).size(), 3);
    const QVariantList trashed = listRequests(sample, "1");
    ASSERT_EQ(trashed.size(), 1);
    EXPECT_EQ(trashed.first().toMap().value("fTrash"), "1");
    EXPECT_EQ(trashed.first().toMap().value("sEmail"), sample);
    EXPECT_TRUE(listRequests("nobody@example.com").isEmpty());

    // SIGTERM ends the site cleanly.
    site.stop();
    EXPECT_EQ(site.lastExitCode(), 0);
}
