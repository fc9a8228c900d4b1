#include "QKSupportSiteProcess.h"
#include "SiteClient.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlDatabase>
#include <QSqlQuery>

#include <gtest/gtest.h>

namespace {

MultipartBody newRequest(const QString &email, const QString &body)
{
    MultipartBody form;
    form.field("action", "new").field("sFirstName", "Kim").field("sLastName", "Park");
    form.field("sEmail", email).field("sPhone", "").field("xCategory", "2");
    form.field("Custom1", "Test Host").field("Custom3", "2.5b1").field("Custom4", "1");
    form.field("tBody", body);
    return form;
}

QVariantMap requestNumbers(const SiteResponse &response)
{
    EXPECT_EQ(response.status, 200) << response.body.toStdString();
    return SiteXml::helpDeskReply(response.body);
}

QList<QVariantMap> list(const QKSupportSiteProcess &site, const QString &email)
{
    return SiteXml::elements(
        SiteClient::post(
            site.helpDeskAPIURL(),
            MultipartBody().field("action", "list").field("sEmail", email).field("fTrash", "0"))
            .body,
        "request");
}

QVariantList events(const QVariantMap &request)
{
    return SiteXml::list(request.value("history").toMap().value("history_events"));
}

} // namespace

TEST(SiteState, requestsAndDocumentsSurviveARestart)
{
    QKSupportSiteProcess site(QKSupportSiteProcess::Environment::Keep);
    ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
    const QString baseURL = site.baseURL();

    const QVariantMap first = requestNumbers(SiteClient::post(
        site.helpDeskAPIURL(), newRequest("kim@example.com", "Before the restart")));
    const QByteArray document("PK\x05\x06" + QByteArray(18, '\0'));
    const SiteResponse added =
        SiteClient::post(site.helpDeskAPIURL(),
                         MultipartBody()
                             .field("action", "add_document")
                             .field("xRequestHistory", first.value("xRequestHistory").toString())
                             .field("name", "system_profile")
                             .field("mimetype", "application/zip")
                             .field("body", QString::fromLatin1(document.toBase64())));
    const QString documentNumber = SiteXml::helpDeskReply(added.body).value("xDocument").toString();
    ASSERT_FALSE(documentNumber.isEmpty()) << added.body.toStdString();

    ASSERT_TRUE(site.restart()) << site.errorString().toStdString();
    EXPECT_EQ(site.baseURL(), baseURL) << "a restart keeps the port";

    const QList<QVariantMap> found = list(site, "kim@example.com");
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(found.first().value("xRequest"), first.value("xRequest"));
    EXPECT_EQ(events(found.first()).first().toMap().value("tNote").toString(),
              "Before the restart");
    EXPECT_EQ(SiteClient::get(baseURL + "/inspect/documents/" + documentNumber).body, document);

    const QVariantMap second = requestNumbers(SiteClient::post(
        site.helpDeskAPIURL(), newRequest("kim@example.com", "After the restart")));
    EXPECT_GT(second.value("xRequest").toLongLong(), first.value("xRequest").toLongLong());
    EXPECT_GT(second.value("xRequestHistory").toLongLong(),
              first.value("xRequestHistory").toLongLong());

    // The seed is written once: a restart must not add the sample requests again.
    EXPECT_EQ(list(site, "alex.martin@example.com").size(), 3);
}

TEST(SiteState, stateIsAnSQLiteDatabase)
{
    QKSupportSiteProcess site(QKSupportSiteProcess::Environment::Keep);
    ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
    const QVariantMap created = requestNumbers(
        SiteClient::post(site.helpDeskAPIURL(), newRequest("lee@example.com", "Stored on disk")));
    site.stop();
    EXPECT_EQ(site.lastExitCode(), 0) << "SIGTERM ends the site cleanly";

    {
        QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE", "inspection");
        database.setDatabaseName(site.statePath());
        ASSERT_TRUE(database.open());
        QSqlQuery query(database);
        ASSERT_TRUE(query.exec("SELECT tNote FROM history WHERE xRequestHistory = " +
                               created.value("xRequestHistory").toString()));
        ASSERT_TRUE(query.next());
        EXPECT_EQ(query.value(0).toString(), "Stored on disk");
    }
    QSqlDatabase::removeDatabase("inspection");
}

TEST(SiteState, staffRepliesAndClosingShowInTheList)
{
    QKSupportSiteProcess site(QKSupportSiteProcess::Environment::Keep);
    ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
    const QString number = requestNumbers(SiteClient::post(site.helpDeskAPIURL(),
                                                           newRequest("pat@example.com", "Help!")))
                               .value("xRequest")
                               .toString();

    const SiteResponse publicReply =
        SiteClient::post(site.baseURL() + "/inspect/reply", "application/json",
                         QJsonDocument(QJsonObject{{"xRequest", number.toLongLong()},
                                                   {"tNote", "Try turning it off and on again."},
                                                   {"xPerson", 7}})
                             .toJson());
    ASSERT_EQ(publicReply.status, 200) << publicReply.body.toStdString();
    const SiteResponse privateNote =
        SiteClient::post(site.baseURL() + "/inspect/reply", "application/x-www-form-urlencoded",
                         "xRequest=" + number.toUtf8() + "&tNote=Customer+seems+upset&fPublic=0");
    ASSERT_EQ(privateNote.status, 200) << privateNote.body.toStdString();
    const SiteResponse closed = SiteClient::post(
        site.baseURL() + "/inspect/close?xRequest=" + number, QByteArray(), QByteArray());
    ASSERT_EQ(closed.status, 200) << closed.body.toStdString();

    const QList<QVariantMap> found = list(site, "pat@example.com");
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(found.first().value("fOpen").toString(), "0");
    const QVariantList history = events(found.first());
    ASSERT_EQ(history.size(), 3);
    const QVariantMap staff = history.at(1).toMap();
    EXPECT_EQ(staff.value("xPerson").toString(), "7");
    EXPECT_EQ(staff.value("fPublic").toString(), "1");
    EXPECT_EQ(staff.value("tNote").toString(), "Try turning it off and on again.");
    const QVariantMap note = history.at(2).toMap();
    EXPECT_EQ(note.value("fPublic").toString(), "0");
    EXPECT_EQ(note.value("xPerson").toString(), "1");
    EXPECT_EQ(note.value("tNote").toString(), "Customer seems upset");

    EXPECT_EQ(SiteClient::post(site.baseURL() + "/inspect/close", "application/json",
                               R"({"xRequest": 1})")
                  .status,
              404);
    EXPECT_EQ(SiteClient::post(site.baseURL() + "/inspect/reply", "application/json", "[1]").status,
              400);
}

TEST(SiteState, launcherPointsTheLibraryAtTheSite)
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
