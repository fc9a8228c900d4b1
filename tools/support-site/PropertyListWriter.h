#pragma once

#include <QByteArray>
#include <QVariant>

/**
 * Writes values in the XML property-list format: maps become dict (keys sorted), lists
 * array, strings string, integers integer, doubles real, booleans true/false, dates date
 * and byte arrays data. Other types are written as their string form.
 */
namespace PropertyListWriter {

/** The whole document, declaration and doctype included, for @p root. */
QByteArray write(const QVariant &root);

} // namespace PropertyListWriter
