#include "PanesTestSupport.h"

#include <cstdlib>
#include <ctime>

namespace {

// Before main(): the application and every date it makes must see this zone.
const bool newYorkTime = [] {
    setenv("TZ", "America/New_York", 1);
    tzset();
    return true;
}();

} // namespace

namespace PanesTest {

QKHelpDesk *openWithoutSite(const QString &title, const QString &baseURL)
{
    useSite(baseURL);
    QKHelpDesk *helpDesk = startHelpDesk();
    if (!openWindowAndWaitForCasts(helpDesk))
        return nullptr;
    helpDesk->_openWindow(title);
    return helpDesk;
}

} // namespace PanesTest
