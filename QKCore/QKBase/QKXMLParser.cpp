#include "QKXMLParser.h"

#include <QByteArray>
#include <QList>
#include <QSet>
#include <QXmlStreamReader>

struct QKXMLParser::Private
{
    QStringList dictionaryElements;
    QStringList arrayElements;
    QStringList ignoredElements;
    RootClass rootClass = RootClass::Array;
};

namespace {

// One element being read. A leaf turns into a dictionary when its first child starts.
struct Frame
{
    enum Kind { Root, Dictionary, Array, Leaf, Ignored };

    Kind kind;
    QString name;
    QVariantMap map;
    QVariantList list;
    QString text;

    QVariant value() const
    {
        switch (kind) {
        case Dictionary:
            return map;
        case Array:
            return list;
        case Leaf:
            return text;
        case Root:
        case Ignored:
            break;
        }
        return QVariant();
    }
};

class Builder
{
public:
    Builder(const QStringList &dictionaries, const QStringList &arrays, const QStringList &ignored,
            bool arrayRoot)
        : m_dictionaries(dictionaries.cbegin(), dictionaries.cend()),
          m_arrays(arrays.cbegin(), arrays.cend()), m_ignored(ignored.cbegin(), ignored.cend()),
          m_arrayRoot(arrayRoot)
    {
        m_stack.append(Frame{Frame::Root, QString(), {}, {}, {}});
    }

    void startElement(const QString &name)
    {
        Frame &parent = m_stack.last();
        if (parent.kind == Frame::Leaf) {
            parent.kind = Frame::Dictionary;
            parent.text.clear();
        }
        m_stack.append(Frame{kindOf(name), name, {}, {}, {}});
    }

    void characters(QStringView text)
    {
        Frame &current = m_stack.last();
        if (current.kind == Frame::Leaf)
            current.text.append(text);
    }

    void endElement()
    {
        if (m_stack.size() < 2)
            return;
        const Frame finished = m_stack.takeLast();
        if (finished.kind == Frame::Ignored)
            return;
        add(finished.name, finished.value());
    }

    QVariant root() const
    {
        const Frame &root = m_stack.first();
        return m_arrayRoot ? QVariant(root.list) : QVariant(root.map);
    }

private:
    Frame::Kind kindOf(const QString &name) const
    {
        if (m_ignored.contains(name))
            return Frame::Ignored;
        if (m_dictionaries.contains(name))
            return Frame::Dictionary;
        if (m_arrays.contains(name))
            return Frame::Array;
        return Frame::Leaf;
    }

    // Ignored wrappers hand their children to the nearest real container.
    void add(const QString &name, const QVariant &value)
    {
        for (auto it = m_stack.rbegin(); it != m_stack.rend(); ++it) {
            switch (it->kind) {
            case Frame::Ignored:
                continue;
            case Frame::Root:
                if (m_arrayRoot)
                    it->list.append(value);
                else
                    it->map.insert(name, value);
                return;
            case Frame::Array:
                it->list.append(value);
                return;
            case Frame::Dictionary:
            case Frame::Leaf:
                it->map.insert(name, value);
                return;
            }
        }
    }

    const QSet<QString> m_dictionaries;
    const QSet<QString> m_arrays;
    const QSet<QString> m_ignored;
    const bool m_arrayRoot;
    QList<Frame> m_stack;
};

} // namespace

std::unique_ptr<QKXMLParser> QKXMLParser::parser()
{
    return std::make_unique<QKXMLParser>();
}

QKXMLParser::QKXMLParser() : d(std::make_unique<Private>()) {}

QKXMLParser::~QKXMLParser() = default;

QKXMLParser::QKXMLParser(const QKXMLParser &other) : d(std::make_unique<Private>(*other.d)) {}

QKXMLParser &QKXMLParser::operator=(const QKXMLParser &other)
{
    *d = *other.d;
    return *this;
}

void QKXMLParser::setDictionaryElements(const QStringList &names)
{
    d->dictionaryElements = names;
}

QStringList QKXMLParser::dictionaryElements() const
{
    return d->dictionaryElements;
}

void QKXMLParser::setArrayElements(const QStringList &names)
{
    d->arrayElements = names;
}

QStringList QKXMLParser::arrayElements() const
{
    return d->arrayElements;
}

void QKXMLParser::setIgnoredElements(const QStringList &names)
{
    d->ignoredElements = names;
}

QStringList QKXMLParser::ignoredElements() const
{
    return d->ignoredElements;
}

void QKXMLParser::setRootClass(RootClass rootClass)
{
    d->rootClass = rootClass;
}

QKXMLParser::RootClass QKXMLParser::rootClass() const
{
    return d->rootClass;
}

QVariant QKXMLParser::objectForData(const QByteArray &data, QString *error) const
{
    Builder builder(d->dictionaryElements, d->arrayElements, d->ignoredElements,
                    d->rootClass == RootClass::Array);
    QXmlStreamReader reader(data);
    // Element names are matched as written; prefixes need no declaration to be read.
    reader.setNamespaceProcessing(false);
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            builder.startElement(reader.qualifiedName().toString());
            break;
        case QXmlStreamReader::EndElement:
            builder.endElement();
            break;
        case QXmlStreamReader::Characters:
            builder.characters(reader.text());
            break;
        default:
            break;
        }
    }
    if (error) {
        if (reader.hasError())
            *error = QStringLiteral("line %1, column %2: %3")
                         .arg(reader.lineNumber())
                         .arg(reader.columnNumber())
                         .arg(reader.errorString());
        else
            error->clear();
    }
    return builder.root();
}
