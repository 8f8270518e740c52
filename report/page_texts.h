// report/page_texts.h
// The style sheets and the script of the same names in this folder, as compiled into the programs.
#pragma once

namespace brisko::lab {

extern const char* const chartCss;
extern const char* const largeChartCss;
extern const char* const reportCss;
extern const char* const historyCss;
extern const char* const selectionJs;

}  // namespace brisko::lab
