#include "OrvelAgent/Platform/Linux/SelectionReader.h"

#include <algorithm>
#include <utility>

#include "OrvelAgent/Platform/Linux/SelectionText.h"

namespace orvel {

namespace {

constexpr std::uint32_t maxTargets = 4096;

SelectionEncoding encodingOf(xcb_atom_t type, const SelectionAtoms& atoms) {
    if (type == XCB_ATOM_STRING || type == atoms.compoundText) return SelectionEncoding::latin1;
    if (type == atoms.textPlain || type == atoms.text) return SelectionEncoding::unstated;
    return SelectionEncoding::utf8;
}

// In units of four bytes, as GetProperty counts.
std::uint32_t wordsFor(std::size_t bytes) {
    return static_cast<std::uint32_t>((bytes + 3) / 4);
}

}  // namespace

SelectionReader::SelectionReader(const X11Connection& connection, const SelectionAtoms& names,
                                 xcb_timestamp_t now, std::size_t byteLimit)
    : x11(connection), atoms(names), time(now), maxBytes(byteLimit), window(connection) {
    ask(atoms.targets);
}

void SelectionReader::ask(xcb_atom_t target) {
    xcb_convert_selection(x11.get(), window.id(), atoms.clipboard, target, atoms.transfer, time);
}

void SelectionReader::askForNext() {
    if (wanted.empty()) return finish(std::nullopt);
    state = State::askedForText;
    ask(wanted.back());
    wanted.pop_back();
}

void SelectionReader::finish(std::optional<std::string> text) {
    state = State::over;
    if (text && text->size() <= maxBytes) result = std::move(text);
}

bool SelectionReader::handle(const xcb_generic_event_t& event) {
    if (eventType(event) == XCB_SELECTION_NOTIFY) {
        const auto& answer = reinterpret_cast<const xcb_selection_notify_event_t&>(event);
        if (answer.requestor != window.id()) return false;
        if (answer.selection == atoms.clipboard) answered(answer);
        return true;
    }
    if (eventType(event) != XCB_PROPERTY_NOTIFY) return false;
    const auto& change = reinterpret_cast<const xcb_property_notify_event_t&>(event);
    if (change.window != window.id()) return false;
    if (change.atom != atoms.transfer || change.state != XCB_PROPERTY_NEW_VALUE) return true;
    if (state == State::receivingPieces) {
        readPiece();
    } else if (state == State::passingOver) {
        passOver();
    }
    return true;
}

void SelectionReader::answered(const xcb_selection_notify_event_t& answer) {
    ++answers;
    const bool isRefused = answer.property == XCB_NONE;
    if (state == State::askedForTargets) {
        if (!isRefused) return readTargets();
        // An owner that cannot say what it has.
        wanted = {XCB_ATOM_STRING, atoms.utf8String};
        askForNext();
    } else if (state == State::askedForText) {
        isRefused ? askForNext() : readText();
    }
}

void SelectionReader::readTargets() {
    const auto answer = x11.reply<xcb_get_property_reply>(
        xcb_get_property(x11.get(), 1, window.id(), atoms.transfer, XCB_GET_PROPERTY_TYPE_ANY, 0,
                         maxTargets),
        "GetProperty");
    if (answer->format != 32) return finish(std::nullopt);
    const auto* begin = static_cast<const xcb_atom_t*>(xcb_get_property_value(answer.get()));
    const auto* end = begin + answer->value_len;
    for (const xcb_atom_t target : {atoms.textPlain, atoms.text, xcb_atom_t{XCB_ATOM_STRING},
                                    atoms.textPlainUTF8, atoms.textPlainUtf8, atoms.utf8String}) {
        if (std::find(begin, end, target) != end) wanted.push_back(target);
    }
    askForNext();
}

std::size_t SelectionReader::sizeOfProperty(xcb_atom_t& typeFound) const {
    const auto answer = x11.reply<xcb_get_property_reply>(
        xcb_get_property(x11.get(), 0, window.id(), atoms.transfer, XCB_GET_PROPERTY_TYPE_ANY, 0,
                         0),
        "GetProperty");
    typeFound = answer->type;
    return answer->bytes_after;
}

// False: it is too much, or no bytes.
bool SelectionReader::append() {
    xcb_atom_t typeFound = XCB_NONE;
    const std::size_t size = sizeOfProperty(typeFound);
    if (size > maxBytes - bytes.size()) return false;
    const auto answer = x11.reply<xcb_get_property_reply>(
        xcb_get_property(x11.get(), 1, window.id(), atoms.transfer, XCB_GET_PROPERTY_TYPE_ANY, 0,
                         wordsFor(size) + 1),
        "GetProperty");
    if (answer->value_len > 0 && answer->format != 8) return false;
    if (type == XCB_NONE) type = answer->type;
    bytes.append(static_cast<const char*>(xcb_get_property_value(answer.get())), answer->value_len);
    return bytes.size() <= maxBytes;
}

void SelectionReader::readText() {
    xcb_atom_t typeFound = XCB_NONE;
    sizeOfProperty(typeFound);
    if (typeFound == atoms.incr) {
        const auto least = x11.reply<xcb_get_property_reply>(
            xcb_get_property(x11.get(), 0, window.id(), atoms.transfer, atoms.incr, 0, 1),
            "GetProperty");
        if (least->format == 32 && least->value_len == 1 &&
            *static_cast<const std::uint32_t*>(xcb_get_property_value(least.get())) > maxBytes) {
            return finish(std::nullopt);
        }
        // That is the sign for its owner to begin.
        xcb_delete_property(x11.get(), window.id(), atoms.transfer);
        state = State::receivingPieces;
        return;
    }
    if (!append()) return finish(std::nullopt);
    finishWithBytes();
}

void SelectionReader::finishWithBytes() {
    // The escapes with which COMPOUND_TEXT goes beyond Latin-1: whoever needs them has
    // UTF8_STRING as well, these days.
    if (type == atoms.compoundText && bytes.find('\x1B') != std::string::npos) {
        return finish(std::nullopt);
    }
    finish(utf8From(encodingOf(type, atoms), std::move(bytes)));
}

void SelectionReader::readPiece() {
    ++answers;
    const std::size_t before = bytes.size();
    if (!append()) {
        state = State::passingOver;
        bytes = {};
        return passOver();
    }
    // An empty piece is the end.
    if (bytes.size() == before) finishWithBytes();
}

void SelectionReader::passOver() {
    ++answers;
    xcb_atom_t typeFound = XCB_NONE;
    if (sizeOfProperty(typeFound) == 0) state = State::over;
    xcb_delete_property(x11.get(), window.id(), atoms.transfer);
}

}  // namespace orvel
