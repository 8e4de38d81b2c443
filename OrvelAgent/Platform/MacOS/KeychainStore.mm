// The keychain's contract: an item of a class is unique by its service and account; adding one that
// is there fails with errSecDuplicateItem and changes nothing; an update names the item by a query
// without a value and the new value apart. A query answers errSecItemNotFound only when there is no
// such item: whatever else it says, there may be one that cannot be read now. Any thread; a call
// may put a question to the user and wait for the answer.
#include "OrvelAgent/Platform/MacOS/KeychainStore.h"

#import <Foundation/Foundation.h>
#import <Security/Security.h>

#include <cstdio>

#include "OrvelAgent/Platform/MacOS/CFOwner.h"
#include "OrvelAgent/Platform/MacOS/Text.h"

namespace orvel {

namespace {

using Query = NSMutableDictionary<NSString*, id>;

NSString* key(CFStringRef constant) {
    return (__bridge NSString*)constant;
}

Query* itemQuery(const std::string& service, const std::string& account) {
    Query* const query = [NSMutableDictionary dictionary];
    query[key(kSecClass)] = (__bridge id)kSecClassGenericPassword;
    query[key(kSecAttrService)] = nsString(service);
    query[key(kSecAttrAccount)] = nsString(account);
    return query;
}

// What makes an item ours: its value and who may read it when.
NSDictionary<NSString*, id>* content(ByteView data) {
    return @{
        key(kSecValueData) : [NSData dataWithBytes:data.data() length:data.size()],
        key(kSecAttrAccessible) : (__bridge id)kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly,
    };
}

bool succeeded(OSStatus status) {
    if (status == errSecSuccess) return true;
    if (status != errSecDuplicateItem) {
        std::fprintf(stderr, "orvel: a secret cannot be stored: status %d\n",
                     static_cast<int>(status));
    }
    return false;
}

}  // namespace

SecretStore::Item KeychainStore::read(const std::string& service, const std::string& account) {
    Query* const query = itemQuery(service, account);
    query[key(kSecMatchLimit)] = (__bridge id)kSecMatchLimitOne;
    query[key(kSecReturnData)] = @YES;
    CFOwner<CFTypeRef> found;
    const OSStatus status = SecItemCopyMatching((__bridge CFDictionaryRef)query, found.receive());
    if (status == errSecItemNotFound) return {Item::Status::missing, {}};
    if (status != errSecSuccess || !found || CFGetTypeID(found.get()) != CFDataGetTypeID()) {
        return {Item::Status::unreadable, {}};
    }
    const auto data = static_cast<CFDataRef>(found.get());
    const std::uint8_t* const bytes = CFDataGetBytePtr(data);
    return {Item::Status::found, Bytes(bytes, bytes + CFDataGetLength(data))};
}

bool KeychainStore::add(const std::string& service, const std::string& account, ByteView data) {
    Query* const item = itemQuery(service, account);
    [item addEntriesFromDictionary:content(data)];
    return succeeded(SecItemAdd((__bridge CFDictionaryRef)item, nullptr));
}

bool KeychainStore::replace(const std::string& service, const std::string& account, ByteView data) {
    const OSStatus status = SecItemUpdate((__bridge CFDictionaryRef)itemQuery(service, account),
                                          (__bridge CFDictionaryRef)content(data));
    if (status == errSecItemNotFound) return add(service, account, data);
    return succeeded(status);
}

bool KeychainStore::remove(const std::string& service, const std::string& account) {
    return SecItemDelete((__bridge CFDictionaryRef)itemQuery(service, account)) == errSecSuccess;
}

}  // namespace orvel
