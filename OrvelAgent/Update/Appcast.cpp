#include "OrvelAgent/Update/Appcast.h"

#include <QXmlStreamReader>
#include <algorithm>

#include "OrvelAgent/Update/VersionOrder.h"

namespace orvel {

namespace {

constexpr std::size_t signatureLength = 64;
constexpr qsizetype maxDisplayVersion = 40;

const QString sparkle = QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");
const QString own = QStringLiteral("urn:orvel:appcast");

// As it is written, before it is known to make sense.
struct RawItem {
    QString version, shortVersion, minimumSystemVersion, channel, notes;
    QXmlStreamAttributes enclosure;
};

// A file is named after it, so that it has few characters.
bool isVersion(const std::string& text) {
    constexpr std::string_view others = ".+~-_";
    bool digits = false;
    for (const char c : text) {
        const bool digit = c >= '0' && c <= '9';
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        if (!digit && !letter && others.find(c) == std::string_view::npos) return false;
        digits |= digit;
    }
    return digits && text.size() <= Appcast::maxVersion;
}

// Fits into a line of text and cannot change what stands around it.
bool isPlainLine(const QString& text) {
    return !text.isEmpty() && text.size() <= maxDisplayVersion &&
           std::all_of(text.begin(), text.end(), [](QChar c) {
               return c.isPrint() && c.category() != QChar::Other_Format && !c.isSurrogate();
           });
}

std::string utf8(QStringView text) {
    return text.toString().toStdString();
}

std::optional<AppcastItem> itemFrom(const RawItem& raw) {
    const auto& enclosure = raw.enclosure;
    if (!raw.channel.trimmed().isEmpty()) return std::nullopt;
    auto package = Url::parse(utf8(enclosure.value("url")));
    if (!package || package->scheme() != "https" || package->host().empty()) return std::nullopt;

    const auto either = [&](const QString& element, const QString& attribute) {
        return (element.isEmpty() ? enclosure.value(sparkle, attribute).toString() : element)
            .trimmed();
    };
    AvailableUpdate update;
    update.version = utf8(either(raw.version, "version"));
    if (!isVersion(update.version)) return std::nullopt;
    const auto shortVersion = either(raw.shortVersion, "shortVersionString");
    update.displayVersion = isPlainLine(shortVersion) ? utf8(shortVersion) : update.version;
    update.notes = utf8(raw.notes.trimmed());
    if (update.notes.size() > Appcast::maxNotes) update.notes.clear();

    bool isNumber = false;
    const auto length = enclosure.value("length");
    update.length = length.toULongLong(&isNumber);
    if (!isNumber || update.length == 0 || update.length > Appcast::maxPackage) return std::nullopt;

    auto signature =
        fromBase64(utf8(enclosure.value(sparkle, "edSignature").trimmed())).value_or(Bytes());
    if (signature.size() != signatureLength) signature.clear();
    const auto system = enclosure.value(sparkle, "os");
    return AppcastItem{std::move(update),
                       system.isEmpty() ? "macos" : utf8(system),
                       utf8(enclosure.value("type")),
                       utf8(enclosure.value(own, "architecture")),
                       utf8(raw.minimumSystemVersion.trimmed()),
                       *std::move(package),
                       std::move(signature)};
}

// What an element says; empty when it has elements of its own.
QString textOfElement(QXmlStreamReader& reader) {
    const auto text = reader.readElementText(QXmlStreamReader::SkipChildElements);
    return text;
}

RawItem readItem(QXmlStreamReader& reader) {
    RawItem item;
    while (reader.readNextStartElement()) {
        const auto space = reader.namespaceUri();
        const auto name = reader.name();
        if (space.isEmpty() && name == u"enclosure") {
            item.enclosure = reader.attributes();
            reader.skipCurrentElement();
        } else if (space.isEmpty() && name == u"description") {
            item.notes = textOfElement(reader);
        } else if (space == sparkle && name == u"version") {
            item.version = textOfElement(reader);
        } else if (space == sparkle && name == u"shortVersionString") {
            item.shortVersion = textOfElement(reader);
        } else if (space == sparkle && name == u"minimumSystemVersion") {
            item.minimumSystemVersion = textOfElement(reader);
        } else if (space == sparkle && name == u"channel") {
            item.channel = textOfElement(reader);
        } else {
            reader.skipCurrentElement();
        }
    }
    return item;
}

// Entities are declared in document types only, which come before the first element: there is
// nothing left that could be expanded, or fetched.
bool reachesRoot(QXmlStreamReader& reader) {
    while (!reader.atEnd()) {
        const auto token = reader.readNext();
        if (token == QXmlStreamReader::DTD) return false;
        if (token == QXmlStreamReader::StartElement) return reader.name() == u"rss";
    }
    return false;
}

}  // namespace

std::optional<std::vector<AppcastItem>> Appcast::parse(ByteView feed) {
    if (feed.size() > maxSize) return std::nullopt;
    QXmlStreamReader reader(QByteArray(reinterpret_cast<const char*>(feed.data()),
                                       static_cast<qsizetype>(feed.size())));
    if (!reachesRoot(reader)) return std::nullopt;
    std::vector<AppcastItem> items;
    bool hasChannel = false;
    while (reader.readNextStartElement()) {
        if (reader.name() != u"channel" || hasChannel) {
            reader.skipCurrentElement();
            continue;
        }
        hasChannel = true;
        for (std::size_t seen = 0; reader.readNextStartElement();) {
            if (reader.name() != u"item" || ++seen > maxItems) {
                reader.skipCurrentElement();
            } else if (auto item = itemFrom(readItem(reader))) {
                items.push_back(*std::move(item));
            }
        }
    }
    // To the document's end: half a feed is none.
    while (!reader.atEnd())
        reader.readNext();
    if (reader.hasError() || !hasChannel) return std::nullopt;
    return items;
}

const AppcastItem* Appcast::newest(const std::vector<AppcastItem>& items, const Target& target) {
    const AppcastItem* best = nullptr;
    for (const auto& item : items) {
        const bool fits = item.system == target.system && item.type == target.type &&
                          (item.architecture.empty() || item.architecture == target.architecture) &&
                          (item.minimumSystemVersion.empty() ||
                           compareVersions(item.minimumSystemVersion, target.systemVersion) <= 0);
        if (fits && (!best || compareVersions(item.update.version, best->update.version) > 0)) {
            best = &item;
        }
    }
    return best;
}

}  // namespace orvel
