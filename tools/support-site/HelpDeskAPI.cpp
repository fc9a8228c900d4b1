#include "HelpDeskAPI.h"

#include "HelpDeskStore.h"
#include "MultipartForm.h"
#include "SampleCatalogue.h"

#include <QDateTime>
#include <QRegularExpression>
#include <QXmlStreamWriter>

#include <algorithm>
#include <functional>

namespace {

const QByteArray xmlType = QByteArrayLiteral("text/xml; charset=utf-8");

/** A reply document: the declaration, then one root element filled by @p body. */
QByteArray xmlDocument(const QString &root, const std::function<void(QXmlStreamWriter &)> &body)
{
    QByteArray document;
    QXmlStreamWriter xml(&document);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement(root);
    body(xml);
    xml.writeEndElement();
    xml.writeEndDocument();
    return document;
}

/**
 * Writes a text element that survives a reader's line-end normalisation: carriage returns
 * go out as character references, and control characters XML cannot carry as U+FFFD.
 */
void writeText(QXmlStreamWriter &xml, const QString &name, const QString &text)
{
    xml.writeStartElement(name);
    qsizetype start = 0;
    for (qsizetype i = 0; i <= text.size(); ++i) {
        const bool end = i == text.size();
        const QChar c = end ? QChar() : text[i];
        if (!end && (c.unicode() >= 0x20 || c == u'\n' || c == u'\t'))
            continue;
        xml.writeCharacters(text.mid(start, i - start));
        if (c == u'\r')
            xml.writeEntityReference(QStringLiteral("#13"));
        else if (!end)
            xml.writeCharacters(QString(QChar::ReplacementCharacter));
        start = i + 1;
    }
    xml.writeEndElement();
}

void writeNumber(QXmlStreamWriter &xml, const QString &name, qint64 value)
{
    xml.writeTextElement(name, QString::number(value));
}

void writeEvent(QXmlStreamWriter &xml, const HistoryEvent &event)
{
    xml.writeStartElement(QStringLiteral("history_events"));
    writeNumber(xml, QStringLiteral("xRequestHistory"), event.id);
    writeNumber(xml, QStringLiteral("xRequest"), event.requestId);
    writeNumber(xml, QStringLiteral("fPublic"), event.isPublic ? 1 : 0);
    if (event.note)
        writeText(xml, QStringLiteral("tNote"), *event.note);
    writeNumber(xml, QStringLiteral("xPerson"), event.person);
    writeNumber(xml, QStringLiteral("dtGMTChange"), event.time);
    xml.writeEndElement();
}

void writeRequest(QXmlStreamWriter &xml, const StoredRequest &request)
{
    const auto field = [&](const char *name) {
        writeText(xml, QLatin1String(name), request.fields.value(QLatin1String(name)).toString());
    };
    xml.writeStartElement(QStringLiteral("request"));
    writeNumber(xml, QStringLiteral("xRequest"), request.id);
    writeNumber(xml, QStringLiteral("fOpen"), request.isOpen ? 1 : 0);
    writeNumber(xml, QStringLiteral("fTrash"), request.isTrashed ? 1 : 0);
    writeNumber(xml, QStringLiteral("xCategory"), request.category);
    field("sFirstName");
    field("sLastName");
    writeText(xml, QStringLiteral("sEmail"), request.email);
    field("sPhone");
    writeNumber(xml, QStringLiteral("fUrgent"),
                request.fields.value(QLatin1String("fUrgent")).toString().toInt());
    writeNumber(xml, QStringLiteral("dtGMTOpened"), request.opened);
    xml.writeStartElement(QStringLiteral("history"));
    for (const HistoryEvent &event : request.history)
        writeEvent(xml, event);
    xml.writeEndElement();
    xml.writeEndElement();
}

SiteReply xmlReply(const QByteArray &document)
{
    return SiteReply::ok(xmlType, document);
}

SiteReply numbersReply(qint64 request, qint64 history)
{
    return xmlReply(xmlDocument(QStringLiteral("results"), [&](QXmlStreamWriter &xml) {
        writeNumber(xml, QStringLiteral("xRequest"), request);
        writeNumber(xml, QStringLiteral("xRequestHistory"), history);
    }));
}

/** Number-valued fields travel as decimal integers; a word such as "true" is refused. */
std::optional<qint64> integerField(const MultipartForm &form, const QString &name)
{
    static const QRegularExpression integer(QStringLiteral("^-?[0-9]+$"));
    const QString text = form.text(name).trimmed();
    if (!integer.match(text).hasMatch())
        return std::nullopt;
    return text.toLongLong();
}

/**
 * Decodes Base64 that may be wrapped into lines. The whitespace is dropped one chunk at a
 * time so that a large document is never copied whole before it is decoded.
 */
std::optional<QByteArray> decodeBase64(QByteArrayView text)
{
    constexpr qsizetype chunkSize = 64 * 1024; // a multiple of 4: chunks decode on their own
    QByteArray decoded;
    decoded.reserve(text.size() / 4 * 3);
    QByteArray chunk;
    chunk.reserve(chunkSize);
    bool padded = false;
    const auto flush = [&] {
        if (chunk.isEmpty())
            return true;
        // Qt decodes a lone trailing character (six bits, not a byte) to nothing and calls
        // that a success, which stored "Q" as an empty document.
        if (chunk.size() % 4 == 1)
            return false;
        // Padding ends the data; nothing may follow it.
        if (padded)
            return false;
        padded = chunk.contains('=');
        auto result =
            QByteArray::fromBase64Encoding(chunk, QByteArray::AbortOnBase64DecodingErrors);
        if (!result)
            return false;
        decoded.append(*result);
        chunk.resize(0);
        return true;
    };
    const auto isSpace = [](char c) {
        return c == '\r' || c == '\n' || c == ' ' || c == '\t';
    };
    // Whole runs between line breaks are copied: appending byte by byte cost a third of
    // what decoding a large document does.
    for (qsizetype pos = 0; pos < text.size();) {
        if (isSpace(text[pos])) {
            ++pos;
            continue;
        }
        const qsizetype limit = std::min(text.size(), pos + chunkSize - chunk.size());
        qsizetype end = pos + 1;
        while (end < limit && !isSpace(text[end]))
            ++end;
        chunk.append(text.sliced(pos, end - pos));
        pos = end;
        if (chunk.size() == chunkSize && !flush())
            return std::nullopt;
    }
    if (!flush())
        return std::nullopt;
    return decoded;
}

qint64 now()
{
    return QDateTime::currentSecsSinceEpoch();
}

} // namespace

HelpDeskAPI::HelpDeskAPI(HelpDeskStore &store, const SampleCatalogue &catalogue)
    : m_store(store), m_catalogue(catalogue)
{}

SiteReply HelpDeskAPI::error(const QString &description)
{
    SiteReply reply = xmlReply(xmlDocument(QStringLiteral("error"), [&](QXmlStreamWriter &xml) {
        writeText(xml, QStringLiteral("description"), description);
    }));
    reply.status = 400;
    return reply;
}

QString HelpDeskAPI::missingField(const MultipartForm &form, const QStringList &names)
{
    for (const QString &name : names) {
        if (!form.contains(name))
            return name;
    }
    return {};
}

SiteReply HelpDeskAPI::handle(const QByteArray &contentType, const QByteArray &body)
{
    const MultipartForm form = MultipartForm::parse(contentType, body);
    if (!form.isValid())
        return error(QStringLiteral("Malformed form: %1").arg(form.errorString()));
    if (!form.contains(QStringLiteral("action")))
        return error(QStringLiteral("No action given"));
    const QString action = form.text(QStringLiteral("action"));
    if (action == QLatin1String("categories"))
        return categories();
    if (action == QLatin1String("new"))
        return newRequest(form);
    if (action == QLatin1String("add_document"))
        return addDocument(form);
    if (action == QLatin1String("list"))
        return list(form);
    if (action == QLatin1String("update"))
        return update(form);
    return error(QStringLiteral("Unknown action \"%1\"").arg(action));
}

SiteReply HelpDeskAPI::categories() const
{
    const QList<HelpDeskCategory> categories = m_catalogue.categories();
    return xmlReply(xmlDocument(QStringLiteral("results"), [&](QXmlStreamWriter &xml) {
        for (const HelpDeskCategory &category : categories) {
            xml.writeStartElement(QStringLiteral("category"));
            writeNumber(xml, QStringLiteral("xCategory"), category.id);
            writeText(xml, QStringLiteral("sCategory"), category.name);
            writeNumber(xml, QStringLiteral("fAllowPublicSubmit"), category.allowPublicSubmit);
            writeNumber(xml, QStringLiteral("fDeleted"), category.deleted);
            xml.writeEndElement();
        }
    }));
}

SiteReply HelpDeskAPI::newRequest(const MultipartForm &form)
{
    const QString missing = missingField(
        form, {QStringLiteral("sFirstName"), QStringLiteral("sLastName"), QStringLiteral("sEmail"),
               QStringLiteral("sPhone"), QStringLiteral("xCategory"), QStringLiteral("Custom1"),
               QStringLiteral("Custom3"), QStringLiteral("tBody")});
    if (!missing.isEmpty())
        return error(QStringLiteral("Missing field %1").arg(missing));
    for (const QString &name : {QStringLiteral("fUrgent"), QStringLiteral("Custom4")}) {
        if (form.contains(name) && !integerField(form, name))
            return error(QStringLiteral("%1 must be a number").arg(name));
    }
    const auto category = integerField(form, QStringLiteral("xCategory"));
    const QList<HelpDeskCategory> categories = m_catalogue.categories();
    const auto known = std::find_if(categories.cbegin(), categories.cend(),
                                    [&](const HelpDeskCategory &c) { return category == c.id; });
    if (!category || known == categories.cend())
        return error(
            QStringLiteral("Unknown category %1").arg(form.text(QStringLiteral("xCategory"))));
    if (known->deleted || !known->allowPublicSubmit)
        return error(QStringLiteral("Category %1 does not accept requests").arg(*category));

    QJsonObject fields;
    for (const MultipartForm::Part &part : form.parts()) {
        if (part.name != QLatin1String("action"))
            fields.insert(part.name, QString::fromUtf8(part.data));
    }
    const auto numbers = m_store.createRequest(fields, form.text(QStringLiteral("tBody")), now());
    if (!numbers)
        return error(QStringLiteral("The request could not be stored"));
    return numbersReply(numbers->first, numbers->second);
}

SiteReply HelpDeskAPI::addDocument(const MultipartForm &form)
{
    const QString missing =
        missingField(form, {QStringLiteral("xRequestHistory"), QStringLiteral("name"),
                            QStringLiteral("mimetype"), QStringLiteral("body")});
    if (!missing.isEmpty())
        return error(QStringLiteral("Missing field %1").arg(missing));
    const auto history = integerField(form, QStringLiteral("xRequestHistory"));
    if (!history || !m_store.hasEvent(*history)) {
        return error(QStringLiteral("Unknown request history %1")
                         .arg(form.text(QStringLiteral("xRequestHistory"))));
    }

    // A file part carries the document as it is; a text field carries it as Base64, which
    // may be wrapped into lines.
    const MultipartForm::Part *body = form.part(QStringLiteral("body"));
    const std::optional<QByteArray> bytes =
        body->hasFileName ? body->data.toByteArray() : decodeBase64(body->data);
    if (!bytes)
        return error(QStringLiteral("The document body is not Base64"));
    const auto document = m_store.addDocument(*history, form.text(QStringLiteral("name")),
                                              form.text(QStringLiteral("mimetype")), *bytes, now());
    if (!document)
        return error(QStringLiteral("The document could not be stored"));
    return xmlReply(xmlDocument(QStringLiteral("results"), [&](QXmlStreamWriter &xml) {
        writeNumber(xml, QStringLiteral("xDocument"), *document);
    }));
}

SiteReply HelpDeskAPI::list(const MultipartForm &form) const
{
    if (!form.contains(QStringLiteral("sEmail")))
        return error(QStringLiteral("Missing field sEmail"));
    const auto trash = form.contains(QStringLiteral("fTrash"))
                           ? integerField(form, QStringLiteral("fTrash"))
                           : std::optional<qint64>(0);
    if (!trash)
        return error(QStringLiteral("fTrash must be a number"));
    // As on the help desk itself, fTrash 1 searches the trash and 0 everything else.
    const QList<StoredRequest> requests =
        m_store.requests(form.text(QStringLiteral("sEmail")), *trash != 0);
    return xmlReply(xmlDocument(QStringLiteral("results"), [&](QXmlStreamWriter &xml) {
        for (const StoredRequest &request : requests)
            writeRequest(xml, request);
    }));
}

SiteReply HelpDeskAPI::update(const MultipartForm &form)
{
    const QString missing =
        missingField(form, {QStringLiteral("xRequest"), QStringLiteral("tBody")});
    if (!missing.isEmpty())
        return error(QStringLiteral("Missing field %1").arg(missing));
    const auto request = integerField(form, QStringLiteral("xRequest"));
    const auto event =
        request ? m_store.addEvent(*request, true, 0, form.text(QStringLiteral("tBody")), now())
                : std::nullopt;
    if (!event)
        return error(
            QStringLiteral("Unknown request %1").arg(form.text(QStringLiteral("xRequest"))));
    // A customer's answer reopens a closed request, as on the help desk itself.
    m_store.setOpen(*request, true);
    return numbersReply(*request, *event);
}
