#pragma once

#include "QKBaseGlobal.h"

#include <QStringList>
#include <QVariant>

#include <memory>

/**
 * A set of resources with an information dictionary: the host application's (its Qt
 * resource root, then folders next to the executable) or the library's own.
 */
class QKBASE_EXPORT QKBundle
{
public:
    /** The host application's bundle: ":/" first, then "<executable dir>/Resources" and the
     *  executable's own folder. */
    static QKBundle *mainBundle();
    /** The library's own resources (toolbar images, interface files, documents). */
    static QKBundle *libraryBundle();

    /** A bundle over @p resourceRoots, searched in order (Qt resource paths or folders). */
    explicit QKBundle(const QStringList &resourceRoots);
    ~QKBundle();
    QKBundle(const QKBundle &) = delete;
    QKBundle &operator=(const QKBundle &) = delete;

    /** The roots searched for resources, in order. */
    QStringList resourceRoots() const;

    /** "Info.plist" of the bundle, read once; empty when missing or corrupt (logged). */
    QVariantMap infoDictionary() const;
    /** One value of the information dictionary; invalid when absent. */
    QVariant objectForInfoDictionaryKey(const QString &key) const;

    /** Path of the resource "<name>.<type>" (type may be empty); empty when none exists. */
    QString pathForResource(const QString &name, const QString &type) const;
    /** Contents of that resource; empty when missing or unreadable. */
    QByteArray dataForResource(const QString &name, const QString &type) const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};
