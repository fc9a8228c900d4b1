#pragma once

#include "QKUtilitiesGlobal.h"

#include <QString>

/**
 * The addresses of the maker's support site. Both are constants of the build; a host (or a
 * test) may replace them at run time, and the environment variables QK_SUPPORT_BASE_URL and
 * QK_HELPDESK_API_URL override them without a rebuild, so a staging site can be tried.
 * Precedence: the value a host set, then the environment, then the build constant.
 */
class QKUTILITIES_EXPORT QKSupportSite
{
public:
    /** The support site's base URL, without a trailing slash. */
    static QString baseURL();
    /** The help desk API endpoint (a URL whose path ends in "helpspot_api.php"). */
    static QString helpDeskAPIURL();

    /** Overrides the base URL for this process; an empty string removes the override. */
    static void setBaseURL(const QString &url);
    static void setHelpDeskAPIURL(const QString &url);
};
