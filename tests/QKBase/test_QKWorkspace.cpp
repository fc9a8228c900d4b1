#include "QKTestEnvironment.h"
#include "QKTestPrinters.h"
#include "QKWorkspace.h"

#include <QDir>
#include <QFile>
#include <QUrl>

#include <gtest/gtest.h>

#include <cstdlib>

TEST(QKWorkspace, contactCardSplitsTheFullNameAtTheLastSpace)
{
    const QKContactCard ada = QKWorkspace::contactCardFromGecos(
        QStringLiteral("Ada Lovelace,Room 1,+44 20 1234,,"), QStringLiteral("ada@example.org"));
    EXPECT_EQ(ada.firstName, QStringLiteral("Ada"));
    EXPECT_EQ(ada.lastName, QStringLiteral("Lovelace"));
    EXPECT_EQ(ada.phone, QStringLiteral("+44 20 1234"));
    EXPECT_EQ(ada.email, QStringLiteral("ada@example.org"));

    const QKContactCard jean =
        QKWorkspace::contactCardFromGecos(QStringLiteral("Jean Claude Van Damme"), QString());
    EXPECT_EQ(jean.firstName, QStringLiteral("Jean Claude Van"));
    EXPECT_EQ(jean.lastName, QStringLiteral("Damme"));
    EXPECT_TRUE(jean.phone.isEmpty());
}

TEST(QKWorkspace, contactCardToleratesEmptyFields)
{
    EXPECT_TRUE(QKWorkspace::contactCardFromGecos(QString(), QString()).isEmpty());
    EXPECT_TRUE(QKWorkspace::contactCardFromGecos(QStringLiteral(",,,,"), QString()).isEmpty());

    const QKContactCard single =
        QKWorkspace::contactCardFromGecos(QStringLiteral("  Plato  ,,,"), QString());
    EXPECT_EQ(single.firstName, QStringLiteral("Plato"));
    EXPECT_TRUE(single.lastName.isEmpty());

    // No work phone: the home phone is the one to call.
    const QKContactCard home =
        QKWorkspace::contactCardFromGecos(QStringLiteral("Grace Hopper,,,555 0100"), QString());
    EXPECT_EQ(home.phone, QStringLiteral("555 0100"));
}

TEST(QKWorkspace, ownCardTakesTheAddressFromTheEnvironment)
{
    setenv("EMAIL", " ada@example.org ", 1);
    EXPECT_EQ(QKWorkspace::meCard().email, QStringLiteral("ada@example.org"));
}

TEST(QKWorkspace, installedOpenerReceivesWhatIsOpened)
{
    QList<QUrl> opened;
    bool succeed = true;
    QKWorkspace::setOpener([&](const QUrl &url) {
        opened << url;
        return succeed;
    });
    const QString document =
        QDir(QKTestEnvironment::homePath()).filePath(QStringLiteral("a b.pdf"));
    QFile file(document);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();

    EXPECT_TRUE(QKWorkspace::openURL(QUrl(QStringLiteral("https://example.org/help?q=1"))));
    EXPECT_TRUE(QKWorkspace::openFile(document));
    EXPECT_FALSE(QKWorkspace::openFile(document + QStringLiteral(".missing")));
    EXPECT_FALSE(QKWorkspace::openURL(QUrl()));
    succeed = false;
    EXPECT_FALSE(QKWorkspace::openURL(QUrl(QStringLiteral("mailto:support@example.org"))));

    EXPECT_EQ(opened, QList<QUrl>({QUrl(QStringLiteral("https://example.org/help?q=1")),
                                   QUrl::fromLocalFile(document),
                                   QUrl(QStringLiteral("mailto:support@example.org"))}));
}
