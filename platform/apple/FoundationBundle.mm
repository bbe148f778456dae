#include "platform/apple/FoundationBundle.h"

#include "platform/apple/FoundationText.h"
#include "platform/apple/SystemMessages.h"
#include "platform/posix/LanguageFallback.h"

#include <utility>

namespace veltrin::platform {

namespace {

/// What every bundle names in its information dictionary.
NSString *const identifierKey = @"CFBundleIdentifier";

/// The dictionary is asked as it stands. A localized value would have the system choose the bundle's
/// languages before it has been told which are preferred.
NSBundle *bundleOfProgram() {
    NSBundle *own = [NSBundle mainBundle];
    if ([[own infoDictionary] objectForKey:identifierKey] != nil) {
        return own;
    }
    NSBundle *beside = [NSBundle bundleWithPath:[[own executablePath] stringByDeletingLastPathComponent]];
    return beside != nil ? beside : own;
}

/// A text for people: a string that shows something. An empty one would be a status line that says nothing.
std::optional<std::string> visibleText(id value) {
    std::optional<std::string> text = textOf(value);
    if (text && text->find_first_not_of(" \t\r\n") == std::string::npos) {
        text.reset();
    }
    return text;
}

} // namespace

FoundationBundle::FoundationBundle(Report theReport) : report(std::move(theReport)), bundle(nil) {
    const ReleasePool pool;
    bundle = send([] { return [bundleOfProgram() retain]; }, [] { return static_cast<NSBundle *>(nil); });
}

std::optional<std::string> FoundationBundle::objectForInfoDictionaryKey(const std::string &key) {
    const ReleasePool pool;
    return send(
        [&]() -> std::optional<std::string> {
            NSString *name = foundationText(key);
            id value = name != nil ? [bundle objectForInfoDictionaryKey:name] : nil;
            // Booleans are numbers here, of a class of their own.
            if ([value isKindOfClass:[[NSNumber numberWithBool:YES] class]]) {
                return [value boolValue] ? "true" : "false";
            }
            return textOf(value);
        },
        []() -> std::optional<std::string> { return std::nullopt; });
}

std::optional<std::string> FoundationBundle::infoDictionaryProblem() {
    const ReleasePool pool;
    return send(
        [this]() -> std::optional<std::string> {
            if ([[bundle infoDictionary] objectForKey:identifierKey] != nil) {
                return std::nullopt;
            }
            return "there is no Info.plist, or none that names its bundle, in " +
                   textOf([bundle bundlePath]).value_or("the program's folder");
        },
        []() -> std::optional<std::string> { return "the system cannot read the Info.plist"; });
}

void FoundationBundle::setPreferredLanguage(const std::string &language) {
    const ReleasePool pool;
    preferredLanguage = language;
#ifdef __APPLE__
    // The system chooses among the bundle's languages itself. The preference is this process's alone: it is
    // not written to disk. GNUstep has no such call, and looks for languages by names of its own.
    send(
        [&language] {
            if (NSString *name = foundationText(language); name != nil) {
                CFPreferencesSetAppValue(CFSTR("AppleLanguages"),
                                         reinterpret_cast<CFArrayRef>([NSArray arrayWithObject:name]),
                                         kCFPreferencesCurrentApplication);
            }
        },
        [] {});
#endif
}

std::string FoundationBundle::localizedStringForKey(const std::string &key, const std::string &defaultText) {
    const ReleasePool pool;
    const std::optional<std::string> text =
        send([&] { return textFor(key); }, []() -> std::optional<std::string> { return std::nullopt; });
    return text.value_or(defaultText.empty() ? key : defaultText);
}

/// The text that a table has under the key; nothing where none has one that shows something.
std::optional<std::string> FoundationBundle::textFor(const std::string &key) {
    NSString *name = foundationText(key);
    if (name == nil) {
        return std::nullopt;
    }
#ifdef __APPLE__
    NSString *absent = @"(no entry)";
    NSString *found = [bundle localizedStringForKey:name value:absent table:nil];
    if (const auto text = visibleText(found); text && ![found isEqualToString:absent]) {
        return text;
    }
    // The system looks into one table only.
    const std::vector<std::string> languages{"en"};
#else
    // GNUstep reads string tables of the older form alone ("key" = "text";), none that is a property
    // list.
    const std::vector<std::string> languages = languagesToTry(preferredLanguage);
#endif
    for (const std::string &language : languages) {
        if (const auto text = visibleText([tableIn(language) objectForKey:name])) {
            return text;
        }
    }
    return std::nullopt;
}

/// The string table of one language, as a property list; nil where there is none.
NSDictionary *FoundationBundle::tableIn(const std::string &language) {
    if (const auto known = tables.find(language); known != tables.end()) {
        return known->second.get();
    }
    NSDictionary *table = nil;
    NSString *path = [bundle pathForResource:@"Localizable"
                                      ofType:@"strings"
                                 inDirectory:nil
                             forLocalization:foundationText(language)];
    if (path != nil) {
        table = [NSDictionary dictionaryWithContentsOfFile:path];
        if (table == nil) {
            report("no string table: " + textOf(path).value_or("") +
                   " is not a property list with a dictionary");
        }
    }
    return tables.emplace(language, Retained<NSDictionary *>(table)).first->second.get();
}

} // namespace veltrin::platform
