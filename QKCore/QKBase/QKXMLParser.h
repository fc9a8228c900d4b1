#pragma once

#include "QKBaseGlobal.h"

#include <QStringList>
#include <QVariant>

#include <memory>

class QByteArray;

/**
 * Turns small, regular XML documents (such as the replies of a web API) into nested
 * QVariantList and QVariantMap values, following rules set per element name:
 *
 * - a dictionary element becomes a QVariantMap keyed by the names of its children;
 * - an array element becomes a QVariantList of its children, in document order;
 * - an ignored element produces nothing itself: its children go to the enclosing
 *   container (to the root for a top-level wrapper such as "results");
 * - any other element is a leaf while it has no child elements and becomes its text as a
 *   QString (empty for an empty element). Once it has a child element it is treated as a
 *   dictionary element, and its own text between the children is dropped.
 *
 * A value goes into its container by the element's name when the container is a map and
 * is appended when it is a list. When a map receives the same name twice, the last value
 * wins, as it would when assigning keys one after another. Elements are matched by their
 * qualified name as written in the document ("prefix:name"); attributes are ignored.
 *
 * @code
 * auto parser = QKXMLParser::parser();
 * parser->setDictionaryElements({QStringLiteral("category")});
 * parser->setIgnoredElements({QStringLiteral("results")});
 * parser->setRootClass(QKXMLParser::RootClass::Array);
 * const QVariantList categories = parser->objectForData(reply).toList();
 * @endcode
 */
class QKBASE_EXPORT QKXMLParser
{
public:
    /** The kind of container that collects the top-level elements. */
    enum class RootClass { Array, Dictionary };

    /** A new parser with empty element lists and an array root. */
    static std::unique_ptr<QKXMLParser> parser();

    QKXMLParser();
    ~QKXMLParser();
    QKXMLParser(const QKXMLParser &other);
    QKXMLParser &operator=(const QKXMLParser &other);

    /** Names of the elements that become QVariantMap values. */
    void setDictionaryElements(const QStringList &names);
    QStringList dictionaryElements() const;

    /** Names of the elements that become QVariantList values. */
    void setArrayElements(const QStringList &names);
    QStringList arrayElements() const;

    /** Names of the wrapper elements whose children go to the enclosing container. */
    void setIgnoredElements(const QStringList &names);
    QStringList ignoredElements() const;

    /** Chooses whether objectForData() returns a QVariantList or a QVariantMap. */
    void setRootClass(RootClass rootClass);
    RootClass rootClass() const;

    /**
     * Parses @p data and returns the root container: a QVariantList or a QVariantMap as
     * set by setRootClass(), never an invalid QVariant.
     *
     * On malformed or truncated XML the root holds every top-level value whose element
     * was closed before the error (elements still open are dropped, so no half-read
     * dictionary is returned), and @p error, when given, receives a description with the
     * line and column; it is cleared on success.
     */
    QVariant objectForData(const QByteArray &data, QString *error = nullptr) const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};
