#include "report/page_beginning.h"

#include "report/chart.h"
#include "report/page_texts.h"

namespace brisko::lab {

std::string pageBeginning(const char* mark, const std::string& title) {
  std::string page = std::string("<!DOCTYPE html>\n<!-- ") + mark +
                     " -->\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                     "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                     "<meta name=\"color-scheme\" content=\"light dark\">\n<title>";
  page +=
      title + "</title>\n<style>\n" + chartCss + largeChartCss + historyCss + "</style>\n</head>\n<body>\n";
  return page + "<svg class=\"picture patterns\" width=\"0\" height=\"0\" aria-hidden=\"true\">" +
         chartPatterns() + "</svg>\n";
}

}  // namespace brisko::lab
