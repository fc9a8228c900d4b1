#pragma once

#include "QKUtilitiesGlobal.h"

#include <QKError.h>

/**
 * Why connecting to or commanding a Wii Remote failed. Codes 1 to 6 are the steps of the
 * connection (no remote found, a stale link that would not close, the link, the SDP query,
 * the control channel, the interrupt channel); code 7 is a failed output report.
 */
class QKUTILITIES_EXPORT QKWiiRemoteError : public QKError
{
public:
    using QKError::QKError;

    /** "QKWiiRemoteError". */
    QString domain() const override;
    /** "A Wii Remote error occurred". */
    QString alertMessage() const override;
    /** The reason for the code; "an unknown error occurred." for a code outside 1..7. */
    QString failureReason() const override;

    /** The action every connection error carries. */
    static QString connectingAction();
    /** The action of a failed output report. */
    static QString sendingAction();
};
