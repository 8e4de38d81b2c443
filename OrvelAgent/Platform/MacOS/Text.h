#pragma once

#import <Foundation/Foundation.h>

#include <string>
#include <string_view>

namespace orvel {

// Text between C++ and Foundation. What is no UTF-8 becomes an empty string.
inline NSString* nsString(std::string_view text) {
    NSString* converted = [[NSString alloc] initWithBytes:text.data()
                                                   length:text.size()
                                                 encoding:NSUTF8StringEncoding];
    return converted ? converted : @"";
}

// nil gives an empty text.
inline std::string textOf(NSString* string) {
    NSData* const bytes = [string dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:YES];
    return bytes ? std::string(static_cast<const char*>(bytes.bytes), bytes.length) : std::string();
}

}  // namespace orvel
