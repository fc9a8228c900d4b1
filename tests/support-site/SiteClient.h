#pragma once

#include "QKSupportSiteProcess.h"
#include "QKTestPrinters.h"

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <gtest/gtest.h>

/** One HTTP exchange as the tests look at it. */
struct SiteResponse
{
    int status = 0; // 0 when no reply came
    QByteArray contentType;
    qint64 contentLength = -1; // -1 when absent
    QByteArray body;
};

/**
 * A multipart/form-data body written out by hand, so that the site is tested against the
 * bytes of RFC 7578 rather than against another multipart implementation.
 */
class MultipartBody
{
public:
    MultipartBody(std::initializer_list<std::pair<const char *, QString>> fields = {})
    {
        for (const auto &[name, value] : fields)
            field(QString::fromUtf8(name), value);
    }
    /** Adds a text field (UTF-8). */
    MultipartBody &field(const QString &name, const QString &value);

    QByteArray contentType() const { return "multipart/form-data; boundary=" + boundary; }
    QByteArray body() const { return m_parts + "--" + boundary + "--\r\n"; }

    const QByteArray boundary = "qk-test-boundary-7MA4YWxkTrZu0gW";

private:
    QByteArray m_parts;
};

/** Blocking HTTP over loopback. */
namespace SiteClient {
SiteResponse get(const QString &url);
SiteResponse post(const QString &url, const QByteArray &contentType, const QByteArray &body);
} // namespace SiteClient

/** A complete "new" form, as the support pane sends it. */
MultipartBody newRequest(const QString &body, const QString &email = u"zoe@example.com"_s);
/** An "add_document" form of a zip archive, @p body in base64. */
MultipartBody addDocument(const QString &history, const QString &name, const QString &body);

/** A test against its own site, which leaves the library's environment alone. */
class SiteTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString(); }

    SiteResponse get(const QString &path) { return SiteClient::get(site.baseURL() + path); }
    SiteResponse api(const MultipartBody &form)
    {
        return SiteClient::post(site.helpDeskAPIURL(), form.contentType(), form.body());
    }
    /** The reply to @p form, which must succeed, read as the support pane reads it (an
     *  error reply gives {"error": {"description": ...}}); with @p list a list reply. */
    QVariant ok(const MultipartBody &form, bool list = false);
    QVariantList listRequests(const QString &email, const QString &trash = u"0"_s)
    {
        return ok({{"action", "list"}, {"sEmail", email}, {"fTrash", trash}}, true).toList();
    }

    QKSupportSiteProcess site{QKSupportSiteProcess::Environment::Keep};
};
