#pragma once

#include "QKBaseGlobal.h"

#include <QString>

#include <functional>

class QUrl;

/** The user's own contact card: from the account's GECOS field and the EMAIL variable. */
struct QKBASE_EXPORT QKContactCard
{
    QString firstName;
    QString lastName;
    QString phone;
    QString email;
    bool isEmpty() const
    {
        return firstName.isEmpty() && lastName.isEmpty() && phone.isEmpty() && email.isEmpty();
    }
};

/**
 * Services of the desktop: opening addresses and files with the user's default
 * applications, the download folder, the user's own card and the machine's identity.
 * Tests install an opener so that nothing is launched; it then records what was opened.
 */
class QKBASE_EXPORT QKWorkspace
{
public:
    using Opener = std::function<bool(const QUrl &url)>;

    /** Opens @p url in the user's default application (browser, viewer); false on failure. */
    static bool openURL(const QUrl &url);
    /** Opens the file at @p path with its default application. */
    static bool openFile(const QString &path);
    /** Replaces the desktop for openURL/openFile; an empty opener restores it. */
    static void setOpener(Opener opener);

    /** The user's download folder (xdg-user-dirs); empty when there is none. */
    static QString downloadDirectory();
    /** The user's own card; empty fields where the account has nothing. */
    static QKContactCard meCard();
    /** The card a GECOS field ("Full Name,Room,Work Phone,Home Phone,Other") describes: the
     *  full name split at its last space, the first phone given, and @p email. */
    static QKContactCard contactCardFromGecos(const QString &gecos, const QString &email);
    /** The machine's identifier from /etc/machine-id; empty when unreadable. */
    static QString machineIdentifier();
};
