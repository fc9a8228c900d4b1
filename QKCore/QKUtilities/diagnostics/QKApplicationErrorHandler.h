#pragma once

#include "QKUtilitiesGlobal.h"

class QKException;

/**
 * Offers every application error to the help desk. Each exception that escapes an event
 * handler of a QKApplication is logged at level 4 with its stack trace, and the user is
 * asked whether to report it; "Yes" opens the help desk on its support pane with the
 * error's reason and stack trace in the message.
 *
 * It is installed by itself when the library is loaded: from inside the construction of
 * the application object it waits for the first event that object dispatches (or, failing
 * that, the first pass of its event loop) and installs itself then, so it is in place
 * before any event handler of the application runs. A handler the host set by then is kept,
 * and an application object that is not a QKApplication is left alone.
 */
class QKUTILITIES_EXPORT QKApplicationErrorHandler
{
public:
    /** The user information key that marks an accessibility exception, which the platform
     *  raises routinely and which is neither logged nor offered for reporting. */
    static const char *const AccessibilityErrorKey;

    /** Makes exceptionHandler() the running QKApplication's exception handler; false when
     *  there is no QKApplication (yet). Installing it again changes nothing. */
    static bool install();

    /**
     * Handles one exception: false, and nothing else, for an accessibility exception;
     * otherwise logs "<reason>\n<stack trace>" at level 4 without context, asks "An
     * application error occurred. Do you want to report this to the HelpDesk?" (Yes, No)
     * and, on Yes, opens the help desk's support pane prepared for the error; then true.
     * Called on another thread than the main thread, it logs there and asks on the main
     * thread, without waiting.
     */
    static bool exceptionHandler(const QKException &exception);
};
