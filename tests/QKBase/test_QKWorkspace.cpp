#include "QKTestEnvironment.h"
#include "QKTestSupport.h"
#include "QKWorkspace.h"

#include <QUrl>

#include <cstdlib>

TEST(QKWorkspace, contactCardSplitsTheFullNameAtTheLastSpace)
{
    const struct
    {
        QString gecos;
        QString firstName;
        QString lastName;
        QString phone;
    } cases[] = {
        {u"Ada Lovelace,Room 1,+44 20 1234,,"_s, u"Ada"_s, u"Lovelace"_s, u"+44 20 1234"_s},
        {u"Jean Claude Van Damme"_s, u"Jean Claude Van"_s, u"Damme"_s, {}},
        {u"  Plato  ,,,"_s, u"Plato"_s, {}, {}},
        // No work phone: the home phone is the one to call.
        {u"Grace Hopper,,,555 0100"_s, u"Grace"_s, u"Hopper"_s, u"555 0100"_s},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.gecos.toStdString());
        const QKContactCard card = QKWorkspace::contactCardFromGecos(c.gecos, u"a@example.org"_s);
        EXPECT_EQ(card.firstName, c.firstName);
        EXPECT_EQ(card.lastName, c.lastName);
        EXPECT_EQ(card.phone, c.phone);
        EXPECT_EQ(card.email, u"a@example.org"_s);
    }
    EXPECT_TRUE(QKWorkspace::contactCardFromGecos(QString(), QString()).isEmpty());
    EXPECT_TRUE(QKWorkspace::contactCardFromGecos(u",,,,"_s, QString()).isEmpty());

    // The own card takes the address from the environment.
    setenv("EMAIL", " ada@example.org ", 1);
    EXPECT_EQ(QKWorkspace::meCard().email, u"ada@example.org"_s);
}

TEST(QKWorkspace, installedOpenerReceivesWhatIsOpened)
{
    QList<QUrl> opened;
    bool succeed = true;
    QKWorkspace::setOpener([&](const QUrl &url) {
        opened << url;
        return succeed;
    });
    const QString document = QKTestEnvironment::homeFile(u"a b.pdf"_s);
    ASSERT_TRUE(QKTestEnvironment::writeAll(document, {}));

    EXPECT_TRUE(QKWorkspace::openURL(QUrl(u"https://example.org/help?q=1"_s)));
    EXPECT_TRUE(QKWorkspace::openFile(document));
    EXPECT_FALSE(QKWorkspace::openFile(document + u".missing"_s));
    EXPECT_FALSE(QKWorkspace::openURL(QUrl()));
    succeed = false;
    EXPECT_FALSE(QKWorkspace::openURL(QUrl(u"mailto:support@example.org"_s)));
    EXPECT_EQ(opened,
              QList<QUrl>({QUrl(u"https://example.org/help?q=1"_s), QUrl::fromLocalFile(document),
                           QUrl(u"mailto:support@example.org"_s)}));
}
