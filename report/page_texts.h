// report/page_texts.h
// The style sheets and the script of the same names in this folder, as compiled into the lab.
#pragma once

namespace brisko::lab {

extern const char* const chartCss;
extern const char* const reportCss;
extern const char* const reportJs;

}  // namespace brisko::lab
