#include "QKTestEnvironment.h"
#include "QKTestSupport.h"
#include "QKWorkspace.h"

#include <QUrl>

#include <cstdlib>

TEST(QKWorkspace, contactCardSplitsTheFullNameAtTheLastSpace)
{
    // The GECOS field, then first name, last name and phone, tab-separated.
    const std::pair<QString, QString> cases[] = {
        {u"Ada Lovelace,Room 1,+44 20 1234,,"_s, u"Ada\tLovelace\t+44 20 1234"_s},
        {u"Jean Claude Van Damme"_s, u"Jean Claude Van\tDamme\t"_s},
        {u"  Plato  ,,,"_s, u"Plato\t\t"_s},
        // No work phone: the home phone is the one to call.
        {u"Grace Hopper,,,555 0100"_s, u"Grace\tHopper\t555 0100"_s},
        {u",,,,"_s, u"\t\t"_s},
    };
    for (const auto &[gecos, fields] : cases) {
        const QKContactCard card = QKWorkspace::contactCardFromGecos(gecos, u"a@example.org"_s);
        EXPECT_EQ(QStringList({card.firstName, card.lastName, card.phone}).join(u'\t'), fields);
        EXPECT_EQ(card.email, u"a@example.org"_s);
    }
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
    const QUrl help(u"https://example.org/help?q=1"_s), mail(u"mailto:support@example.org"_s);
    EXPECT_TRUE(QKWorkspace::openURL(help));
    EXPECT_TRUE(QKWorkspace::openFile(document));
    EXPECT_FALSE(QKWorkspace::openFile(document + u".missing"_s));
    EXPECT_FALSE(QKWorkspace::openURL(QUrl()));
    succeed = false;
    EXPECT_FALSE(QKWorkspace::openURL(mail));
    EXPECT_EQ(opened, QList<QUrl>({help, QUrl::fromLocalFile(document), mail}));
}
