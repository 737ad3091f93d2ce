#include "plugins/PluginDescriptor.h"

#include <QByteArray>
#include <QDomDocument>
#include <QXmlStreamReader>
#include <filesystem>
#include <fstream>

namespace KR {

namespace {

QByteArray readFile(const std::string& path)
{
    // Opening a pipe or a device could block for ever.
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        throw PluginDescriptorError(0, 0, "not a regular file");
    std::ifstream file(path, std::ios::binary);
    QByteArray bytes(PluginDescriptor::kMaxBytes + 1, '\0');
    file.read(bytes.data(), bytes.size());
    if (file.bad() || !file.eof())
        throw PluginDescriptorError(0, 0,
                                    "cannot be read, or is larger than " +
                                        std::to_string(PluginDescriptor::kMaxBytes) + " bytes");
    bytes.truncate(file.gcount());
    return bytes;
}

/// A prefix is a part of the name and needs no declaration: elements with one are skipped anyway.
void configure(QXmlStreamReader& reader)
{
    reader.setEntityExpansionLimit(PluginDescriptor::kMaxEntityCharacters);
    reader.setNamespaceProcessing(false);
}

/// Walks the document once, without a tree, and refuses what is ill-formed or too deep for one.
void checkDocument(const QByteArray& bytes)
{
    QXmlStreamReader reader(bytes);
    configure(reader);
    int depth = 0;
    while (!reader.atEnd()) {
        const auto token = reader.readNext();
        if (token == QXmlStreamReader::EndElement)
            --depth;
        if (token == QXmlStreamReader::StartElement && ++depth > PluginDescriptor::kMaxDepth)
            reader.raiseError("nested deeper than " + QString::number(PluginDescriptor::kMaxDepth) +
                              " elements");
    }
    if (reader.hasError())
        throw PluginDescriptorError(reader.lineNumber(), reader.columnNumber(),
                                    reader.errorString().toStdString());
}

QDomDocument parse(const QByteArray& bytes)
{
    checkDocument(bytes);
    QXmlStreamReader reader(bytes);
    configure(reader);
    QDomDocument document;
    QString message;
    int line = 0;
    int column = 0;
    if (!document.setContent(&reader, false, &message, &line, &column))
        throw PluginDescriptorError(line, column, message.toStdString());
    return document;
}

/// Calls back for every child element of that name, in document order.
template <class F>
void forEachChild(const QDomElement& parent, const QString& name, F callback)
{
    for (auto child = parent.firstChildElement(name); !child.isNull();
         child = child.nextSiblingElement(name))
        callback(child);
}

}  // namespace

PluginDescriptor readPluginDescriptor(const std::string& path)
{
    const auto document = parse(readFile(path));
    const auto root = document.documentElement();
    PluginDescriptor descriptor;
    if (root.tagName() != "nimbraLaunchpadPlugin")
        return descriptor;

    forEachChild(root, "groups", [&](const QDomElement& groups) {
        forEachChild(groups, "group", [&](const QDomElement& group) {
            descriptor.groups.push_back(group.text().toStdString());
        });
    });
    forEachChild(root, "conditions", [&](const QDomElement& conditions) {
        forEachChild(conditions, "condition", [&](const QDomElement& condition) {
            descriptor.conditions.emplace_back(condition.attribute("purpose").toStdString(),
                                               condition.text().toStdString());
        });
    });
    return descriptor;
}

}  // namespace KR
