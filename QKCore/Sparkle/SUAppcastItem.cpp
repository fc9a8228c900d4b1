#include "SUAppcastItem.h"

class SUAppcastItemData : public QSharedData
{
public:
    QString title;
    QString description;
    QDateTime date;
    QString versionString;
    QString displayVersionString;
    QUrl fileURL;
    QUrl releaseNotesURL;
};

SUAppcastItem::SUAppcastItem() : d(new SUAppcastItemData) {}

SUAppcastItem::SUAppcastItem(const QVariantMap &dictionary) : d(new SUAppcastItemData)
{
    const QVariantMap enclosure = dictionary.value(QStringLiteral("enclosure")).toMap();
    d->title = dictionary.value(QStringLiteral("title")).toString();
    d->description = dictionary.value(QStringLiteral("description")).toString();
    d->date = QDateTime::fromString(dictionary.value(QStringLiteral("pubDate")).toString(),
                                    Qt::RFC2822Date);
    d->fileURL = QUrl(enclosure.value(QStringLiteral("url")).toString());
    d->versionString = enclosure.value(QStringLiteral("sparkle:version")).toString();
    if (d->versionString.isEmpty())
        d->versionString = dictionary.value(QStringLiteral("sparkle:version")).toString();
    d->displayVersionString =
        enclosure.value(QStringLiteral("sparkle:shortVersionString")).toString();
    if (d->displayVersionString.isEmpty())
        d->displayVersionString =
            dictionary.value(QStringLiteral("sparkle:shortVersionString")).toString();
    if (d->displayVersionString.isEmpty())
        d->displayVersionString = d->versionString;
    d->releaseNotesURL =
        QUrl(dictionary.value(QStringLiteral("sparkle:releaseNotesLink")).toString());
}

SUAppcastItem::SUAppcastItem(const SUAppcastItem &other) = default;
SUAppcastItem &SUAppcastItem::operator=(const SUAppcastItem &other) = default;
SUAppcastItem::~SUAppcastItem() = default;

QString SUAppcastItem::title() const
{
    return d->title;
}

QString SUAppcastItem::description() const
{
    return d->description;
}

QDateTime SUAppcastItem::date() const
{
    return d->date;
}

QString SUAppcastItem::versionString() const
{
    return d->versionString;
}

QString SUAppcastItem::displayVersionString() const
{
    return d->displayVersionString;
}

QUrl SUAppcastItem::fileURL() const
{
    return d->fileURL;
}

QUrl SUAppcastItem::releaseNotesURL() const
{
    return d->releaseNotesURL;
}
