#pragma once

#include "QKUtilitiesGlobal.h"

#include <QDateTime>
#include <QMetaType>
#include <QString>
#include <QVariantMap>

/**
 * One catalogued VST 2 plug-in: a Linux shared object, identified by its path.
 *
 * A description starts with the path and the file's modification date (whole seconds, as
 * the database keeps dates); load() opens the plug-in and fills in what it says about
 * itself. A file that turns out not to be a plug-in (no entry point, no effect, wrong
 * magic) stays a description that is not loaded, so it is catalogued, never loaded again
 * while unchanged, and never offered.
 *
 * state() and setState() carry every field, so a description made from a state alone can
 * be loaded, in this process or another:
 *
 * | key                | type    | field                                  |
 * |--------------------|---------|----------------------------------------|
 * | "path"             | string  | path()                                 |
 * | "modificationDate" | date    | modificationDate(), left out if unset  |
 * | "computerCode"     | string  | computerCode(), left out when empty    |
 * | "name"             | string  | name(), left out when empty            |
 * | "vendor"           | string  | vendor(), left out when empty          |
 * | "isInstrument"     | boolean | isInstrument()                         |
 * | "numInputs"        | integer | numInputs()                            |
 * | "numOutputs"       | integer | numOutputs()                           |
 * | "loaded"           | boolean | isLoaded()                             |
 * | "ignore"           | boolean | ignore()                               |
 */
class QKUTILITIES_EXPORT QKVSTDescription
{
public:
    /** An empty description. */
    static QKVSTDescription description();
    /** A new, unloaded entry for the plug-in at @p path, dated by the file. */
    static QKVSTDescription descriptionWithPath(const QString &path);
    /** An empty description given setState(@p state). */
    static QKVSTDescription descriptionWithState(const QVariantMap &state);

    QVariantMap state() const;
    /** Sets the fields whose keys are present; a value of the wrong type is logged and
     *  left out. */
    void setState(const QVariantMap &state);

    /** Opens the plug-in to learn its name, vendor, kind and channel counts, and closes it.
     *  Sets isLoaded() to whether that worked; a failure is logged. */
    void load();

    QString path() const { return m_path; }
    /** The file name without ".so": the plug-in's title in menus and on the splash screen. */
    QString filename() const;
    /** The file's modification date when the entry was made, in whole seconds. */
    QDateTime modificationDate() const { return m_modificationDate; }
    /** The modification date of the file at @p path as entries keep it; invalid when there
     *  is no file. */
    static QDateTime modificationDateOfFile(const QString &path);

    QString computerCode() const { return m_computerCode; }
    void setComputerCode(const QString &computerCode) { m_computerCode = computerCode; }

    /** Set after the plug-in crashed the process while loading; never offered then. */
    bool ignore() const { return m_ignore; }
    void setIgnore(bool ignore) { m_ignore = ignore; }

    /** True once load() found a VST 2 effect in the file. */
    bool isLoaded() const { return m_loaded; }
    /** The effect's name, else its product string, else the file name; empty until
     *  loaded. */
    QString name() const { return m_name; }
    /** The vendor string; empty when the plug-in gives none. */
    QString vendor() const { return m_vendor; }
    /** True for a plug-in that calls itself a synth, by flag or by category. */
    bool isInstrument() const { return m_isInstrument; }
    int numInputs() const { return m_numInputs; }
    int numOutputs() const { return m_numOutputs; }

private:
    QString m_path;
    QDateTime m_modificationDate;
    QString m_computerCode;
    QString m_name;
    QString m_vendor;
    bool m_isInstrument = false;
    int m_numInputs = 0;
    int m_numOutputs = 0;
    bool m_loaded = false;
    bool m_ignore = false;
};

Q_DECLARE_METATYPE(QKVSTDescription)
