// report/page_beginning.h
// How the pages that brisko draws begin.
#pragma once

#include <string>

namespace brisko::lab {

// Up to the first element that is seen. `mark` says who has drawn the page, so that it may be replaced by a
// newer one; `title` is escaped already.
[[nodiscard]] std::string pageBeginning(const char* mark, const std::string& title);

}  // namespace brisko::lab
