#include "platform/characters.h"

#include "core/text.h"

#include <cstdint>
#include <unicode/ubrk.h>
#include <unicode/utext.h>

namespace velmora::platform {

std::size_t characterCount(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    UText* utf8 = utext_openUTF8(nullptr, text.data(), static_cast<std::int64_t>(text.size()), &status);
    UBreakIterator* breaks = ubrk_open(UBRK_CHARACTER, "", nullptr, 0, &status);
    ubrk_setUText(breaks, utf8, &status);
    std::size_t count = 0;
    if (U_SUCCESS(status)) {
        ubrk_first(breaks);
        while (ubrk_next(breaks) != UBRK_DONE) ++count;
    } else {
        count = text::utf32(text).size();  // no break data: one scalar, one character
    }
    ubrk_close(breaks);
    utext_close(utf8);
    return count;
}

}  // namespace velmora::platform
