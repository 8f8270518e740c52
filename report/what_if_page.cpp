#include "report/what_if_page.h"

#include <utility>

#include "report/chart.h"
#include "report/markup.h"
#include "report/page_beginning.h"
#include "report/selection.h"

namespace brisko::lab {
namespace {

std::string comparisonTable(const std::vector<ComparedFigure>& figures) {
  std::string text =
      "<section>\n<h2 id=\"figures\">Both in figures</h2>\n<table aria-labelledby=\"figures\">\n<thead><tr>"
      "<td></td><th scope=\"col\">as it was set</th><th scope=\"col\">as asked</th></tr></thead>\n<tbody>\n";
  for (const ComparedFigure& figure : figures) {
    text += "<tr><th scope=\"row\">" + escaped(figure.name) + "</th><td>" + escaped(figure.asSet) +
            "</td><td>" + escaped(figure.asAsked) + "</td></tr>\n";
  }
  return text + "</tbody>\n</table>\n</section>\n";
}

std::string paragraphs(const std::vector<std::string>& sentences) {
  std::string text;
  for (const std::string& sentence : sentences) text += "<p>" + escaped(sentence) + "</p>\n";
  return text;
}

std::string notesBelow(const Picture& picture, const Chart& chart) {
  std::vector<std::string> notes = picture.notes;
  if (chart.moments.size() < picture.moments.size()) {
    notes.push_back("The curves go through " + std::to_string(chart.moments.size()) + " of " +
                    std::to_string(picture.moments.size()) +
                    " moments, among them the lowest and the highest of every interval.");
  }
  return notes.empty() ? "" : "<footer class=\"notes\">\n" + paragraphs(notes) + "</footer>\n";
}

}  // namespace

std::string whatIfPage(const WhatIfView& view) {
  std::string pictures;
  Selection selection;
  Chart widest;
  for (const Layout& layout : {narrowLayout(), mediumLayout(), wideLayout()}) {
    Chart chart = drawChart(view.picture, Frame::amongOthers, layout);
    if (selection.moments.empty()) {
      selection = selectionOf(chart, view.picture.curves);
    } else {
      selection.pictures.push_back(chart.time);
    }
    pictures += chart.svg;
    widest = std::move(chart);
  }
  const std::string title = escaped(view.picture.title);
  std::string page = pageBeginning(whatIfMark, title);
  page += "<header>\n<h1>" + title + "</h1>\n<p class=\"facts\">" + escaped(view.picture.facts) +
          ".</p>\n</header>\n<main>\n<figure>\n" + pictures + selectionControls(selection) + "</figure>\n";
  page += comparisonTable(view.figures) + paragraphs(view.sentences) + "</main>\n" +
          notesBelow(view.picture, widest) + selectionScripts(selection) + "</body>\n</html>\n";
  return page;
}

}  // namespace brisko::lab
