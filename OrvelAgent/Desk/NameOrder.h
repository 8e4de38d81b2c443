#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace orvel {

// The order in which people expect names of files: numbers by their value ("2" before "10"), the
// letters of their language in its order, capitals beside their small letters. One thread at a
// time.
class NameOrder {
public:
    // `locale` such as "tr_TR"; empty: that of the process's environment.
    explicit NameOrder(const std::string& locale = {});
    ~NameOrder();
    NameOrder(const NameOrder&) = delete;
    NameOrder& operator=(const NameOrder&) = delete;

    // Names stand in the order of their keys, compared as bytes. Different names never have equal
    // keys. Bytes that are no UTF-8 count after everything else is equal.
    std::string keyOf(std::string_view name) const;

private:
    struct Collator;
    const std::unique_ptr<Collator> collator;
};

}  // namespace orvel
