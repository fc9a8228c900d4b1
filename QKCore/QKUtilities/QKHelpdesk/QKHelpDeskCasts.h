#pragma once

#include "HSResults.h"
#include "QKUtilitiesGlobal.h"
#include "SUAppcastItem.h"

#include <QList>
#include <QVariantList>
#include <QVariantMap>

#include <optional>

class QUrl;

/**
 * The fetches behind the help desk's casts. Each one blocks until its reply is in, so they
 * run on the casts thread; none touches a widget. Failures give the empty value and a
 * warning in the application log.
 */
class QKUTILITIES_EXPORT QKHelpDeskCasts
{
public:
    /** The items of the appcast at @p feedURL, in feed order. */
    static QList<SUAppcastItem> appcast(const QUrl &feedURL, const QString &userAgent);
    /** The property-list dictionary at @p url (the documentation cast). */
    static QVariantMap documentation(const QUrl &url);
    /** The property-list array at @p url (the tutorial index). */
    static QVariantList tutorials(const QUrl &url);
    /** The help desk's category list from the API at @p apiURL; nullopt when nothing
     *  arrived. A reply that is not XML gives a null result. */
    static std::optional<HSResults> categories(const QUrl &apiURL);
};
