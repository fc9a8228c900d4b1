#pragma once

#include "QKUtilitiesGlobal.h"

#include <QStringList>

/**
 * Packs the diagnostics of a support request into zip archives with the system's zip tool,
 * "/usr/bin/zip", so the archives are whatever the help desk staff's unzip expects.
 */
class QKUTILITIES_EXPORT QKZipArchiver
{
public:
    /** The zip tool, "/usr/bin/zip". */
    static QString zipToolPath();

    /**
     * Zips @p paths, in order, into @p archivePath and waits until the tool exits, blocking
     * the calling thread. The tool runs with "-qrj", the archive path without its extension
     * (the tool adds ".zip" itself, so @p archivePath should end in ".zip" and have no other
     * dot in its file name), then every path: folders are taken whole, and every file is
     * stored under its own name without folders, so two files of the same name collide.
     *
     * A file already at @p archivePath is removed first, so a leftover archive is never
     * extended or mistaken for a new one. Paths that do not exist are skipped by the tool;
     * the others are still archived. The tool's exit status is not examined.
     *
     * When samples of the files show that deflating would barely shrink them (recordings,
     * compressed audio, other archives), the tool is told through its ZIPOPT variable to
     * store them instead, which takes a fraction of the time; the archive's contents are the
     * same either way. ZIPOPT and ZIP set by the user are never passed on.
     *
     * Returns whether the archive exists afterwards: false when the tool could not run, had
     * nothing to archive or could not write the archive (all logged as warnings).
     */
    static bool zipPaths(const QStringList &paths, const QString &archivePath);
};
