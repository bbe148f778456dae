// A CUPS library that lacks ppdFindAttr, made of the real one: what a later release of CUPS may look like to
// the filter.

#include <cups/cups.h>
#include <cups/ppd.h>

#include <dlfcn.h>

#include <cstdlib>

namespace {

/// The real library's function of the same name.
template <typename Function>
Function *real(const char *name) {
    static void *const library = dlopen(REAL_CUPS_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    void *const symbol = library != nullptr ? dlsym(library, name) : nullptr;
    if (symbol == nullptr) {
        std::abort();
    }
    return reinterpret_cast<Function *>(symbol);
}

} // namespace

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

extern "C" {

const char *cupsGetPPD(const char *name) {
    return real<decltype(cupsGetPPD)>("cupsGetPPD")(name);
}

ppd_file_t *ppdOpenFile(const char *filename) {
    return real<decltype(ppdOpenFile)>("ppdOpenFile")(filename);
}

void ppdClose(ppd_file_t *ppd) {
    real<decltype(ppdClose)>("ppdClose")(ppd);
}

int cupsParseOptions(const char *arg, int num_options, cups_option_t **options) {
    return real<decltype(cupsParseOptions)>("cupsParseOptions")(arg, num_options, options);
}

void cupsFreeOptions(int num_options, cups_option_t *options) {
    real<decltype(cupsFreeOptions)>("cupsFreeOptions")(num_options, options);
}

int cupsTempFd(char *filename, int len) {
    return real<decltype(cupsTempFd)>("cupsTempFd")(filename, len);
}

} // extern "C"
