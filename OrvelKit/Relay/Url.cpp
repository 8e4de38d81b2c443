#include "OrvelKit/Relay/Url.h"

#include <algorithm>
#include <boost/url/parse.hpp>
#include <boost/url/url.hpp>

namespace orvel {

namespace {

namespace urls = boost::urls;

// What a Url holds did parse, so this cannot fail.
urls::url_view viewOf(const std::string& text) {
    return urls::parse_uri_reference(text).value();
}

std::string escaped(std::string_view text) {
    constexpr std::string_view unreserved =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
    constexpr char digits[] = "0123456789ABCDEF";
    std::string result;
    for (const char c : text) {
        if (unreserved.find(c) != std::string_view::npos) {
            result += c;
        } else {
            const auto byte = static_cast<std::uint8_t>(c);
            result += {'%', digits[byte >> 4], digits[byte & 15]};
        }
    }
    return result;
}

std::string copied(urls::string_view text) {
    return {text.data(), text.size()};
}

}  // namespace

std::optional<Url> Url::parse(std::string_view text) {
    if (text.empty()) return std::nullopt;
    const auto parsed = urls::parse_uri_reference({text.data(), text.size()});
    if (!parsed) return std::nullopt;
    return Url(std::string(text));
}

std::string Url::scheme() const {
    std::string scheme = copied(viewOf(written).scheme());
    std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return scheme;
}

std::string Url::host() const {
    return viewOf(written).host_address();
}

std::string Url::authority() const {
    return copied(viewOf(written).encoded_host_and_port());
}

std::string Url::port() const {
    return copied(viewOf(written).port());
}

std::string Url::target() const {
    const auto view = viewOf(written);
    std::string target = copied(view.encoded_path());
    if (target.empty() || target.front() != '/') target.insert(0, "/");
    if (view.has_query()) target += "?" + copied(view.encoded_query());
    return target;
}

Url Url::withScheme(const std::string& scheme) const {
    urls::url changed(viewOf(written));
    changed.set_scheme(scheme);
    return Url(copied(changed.buffer()));
}

Url Url::withPath(const std::string& path) const {
    urls::url changed(viewOf(written));
    changed.set_path(path);
    return Url(copied(changed.buffer()));
}

Url Url::withQuery(const std::vector<std::pair<std::string, std::string>>& items) const {
    std::string query;
    for (const auto& [name, value] : items)
        query.append(query.empty() ? "" : "&").append(escaped(name) + "=" + escaped(value));
    urls::url changed(viewOf(written));
    changed.remove_fragment();
    changed.set_encoded_query(query);
    return Url(copied(changed.buffer()));
}

std::optional<Url> Url::resolved(std::string_view reference) const {
    const auto parsed = urls::parse_uri_reference({reference.data(), reference.size()});
    urls::url whole;
    if (!parsed || !urls::resolve(viewOf(written), *parsed, whole)) return std::nullopt;
    whole.remove_fragment();
    return Url(copied(whole.buffer()));
}

}  // namespace orvel
