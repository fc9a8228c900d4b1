#pragma once

#include <QString>

class QProcess;

/** Starts the loopback support site in @p site with its state at @p statePath; its base URL,
 *  or an empty string when it did not start. */
QString startSupportSite(QProcess &site, const QString &statePath);
