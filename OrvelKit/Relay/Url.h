#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel {

// An address (RFC 3986), absolute or relative; whatever parses, also one that leads nowhere.
class Url {
public:
    static std::optional<Url> parse(std::string_view text);

    const std::string& text() const { return written; }
    std::string scheme() const;     // in lower case; "" when absent
    std::string host() const;       // without the brackets of an IPv6 address; "" when absent
    std::string authority() const;  // host and port as written, without user information
    std::string port() const;       // as written, any number; "" when absent
    std::string target() const;     // path and query, what a request asks for; at least "/"

    Url withScheme(const std::string& scheme) const;  // a valid one
    Url withPath(const std::string& path) const;
    // In place of the query and of a fragment. Whatever means something in a query is escaped.
    Url withQuery(const std::vector<std::pair<std::string, std::string>>& items) const;

    // What a reference found at this address means (RFC 3986, section 5.2), without a fragment;
    // nullopt when it does not parse, or this address is relative itself.
    std::optional<Url> resolved(std::string_view reference) const;

    bool operator==(const Url&) const = default;

private:
    explicit Url(std::string text) : written(std::move(text)) {}
    std::string written;
};

}  // namespace orvel
