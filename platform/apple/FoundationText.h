#pragma once

#import <Foundation/Foundation.h>

#include <optional>
#include <string>

// For Objective-C++ alone.

namespace veltrin::platform {

/// The text of an object, zero bytes included; nothing where it is none.
[[nodiscard]] inline std::optional<std::string> textOf(id object) {
    if (![object isKindOfClass:[NSString class]]) {
        return std::nullopt;
    }
    NSString *text = object;
    NSData *bytes = [text dataUsingEncoding:NSUTF8StringEncoding];
    if (bytes == nil) { // half a character
        return std::nullopt;
    }
    return std::string(static_cast<const char *>([bytes bytes]), [bytes length]);
}

/// Nil where the bytes are not UTF-8. Released with the pool around.
[[nodiscard]] inline NSString *foundationText(const std::string &text) {
    return [[[NSString alloc] initWithBytes:text.data() length:text.size()
                                   encoding:NSUTF8StringEncoding] autorelease];
}

} // namespace veltrin::platform
