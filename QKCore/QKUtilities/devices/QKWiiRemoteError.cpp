#include "QKWiiRemoteError.h"

QString QKWiiRemoteError::domain() const
{
    return QStringLiteral("QKWiiRemoteError");
}

QString QKWiiRemoteError::alertMessage() const
{
    return QStringLiteral("A Wii Remote error occurred");
}

QString QKWiiRemoteError::failureReason() const
{
    switch (code()) {
    case 1:
        return QStringLiteral("a Wii Remote could not be detected.");
    case 2:
        return QStringLiteral("an existing connection to the remote could not be closed.");
    case 3:
        return QStringLiteral("the connection to the remote could not be established.");
    case 4:
        return QStringLiteral("the SDP query failed.");
    case 5:
        return QStringLiteral("the write channel could not be established.");
    case 6:
        return QStringLiteral("the dummy channel could not be established.");
    case 7:
        return QStringLiteral("...well, we're not sure why.");
    default:
        return QStringLiteral("an unknown error occurred.");
    }
}

QString QKWiiRemoteError::connectingAction()
{
    return QStringLiteral("Connecting to a Wii Remote");
}

QString QKWiiRemoteError::sendingAction()
{
    return QStringLiteral("Sending a command to a Wii Remote");
}
