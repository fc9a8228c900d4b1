#pragma once

#include "QKBaseGlobal.h"

#include <QVariant>

class QString;

/**
 * Reads and writes property lists (XML and binary) as QVariant trees.
 *
 * The mapping: dict <-> QVariantMap, array <-> QVariantList, string <-> QString,
 * integer <-> qint64 (unsigned values above INT64_MAX wrap), real <-> double, boolean <-> bool,
 * date <-> QDateTime (UTC), data <-> QByteArray. Writing accepts any QVariant that converts
 * to one of these (int, uint, float, QStringList, QVariantHash...).
 *
 * Binary lists keep dates to the millisecond; XML keeps whole seconds (rounded down).
 * Binary lists carry any string; XML cannot carry control characters other than tab, line feed
 * and carriage return, nor U+FFFE, U+FFFF or unpaired surrogates, so such a string fails to
 * write as XML. Reading refuses, as corrupt, values that do not parse (an integer beyond 64
 * bits, a malformed date or Base64), nesting deeper than 512 levels and binary object graphs
 * that loop or expand far beyond their file.
 */
class QKBASE_EXPORT QKPropertyList
{
public:
    enum class Format { Xml, Binary };

    /** The property list in @p data, XML or binary; an invalid QVariant when the data is
     *  not a property list (corrupt, truncated, empty). @p errorString says why. */
    static QVariant fromData(const QByteArray &data, QString *errorString = nullptr);

    /** @p value serialised; empty when it holds a type a property list cannot carry. */
    static QByteArray toData(const QVariant &value, Format format = Format::Xml,
                             QString *errorString = nullptr);

    /** The XML of @p value as an element nested @p depth levels deep, without the document
     *  around it; empty when it cannot be stored. With xmlDocument(), a writer can keep the
     *  elements of a large list and encode again only those that change:
     *  xmlDocument(xmlElement(v, 0)) == toData(v). */
    static QByteArray xmlElement(const QVariant &value, int depth, QString *errorString = nullptr);
    /** The XML property list document around @p rootElement. */
    static QByteArray xmlDocument(const QByteArray &rootElement);

    /** The property list stored at @p path; invalid when missing or unreadable. */
    static QVariant readFile(const QString &path, QString *errorString = nullptr);

    /** Writes @p value to @p path; with @p atomically the old file survives a failed write.
     *  False (and @p errorString) when the value cannot be encoded or the file written. */
    static bool writeFile(const QVariant &value, const QString &path, Format format = Format::Xml,
                          bool atomically = true, QString *errorString = nullptr);

    /** True when @p value holds an integer of any of Qt's integer types, as integers read
     *  from a property list or set by code do; booleans and reals are not integers. */
    static bool isInteger(const QVariant &value);
};
