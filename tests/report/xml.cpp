#include "report/xml.h"

#include <memory>

#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

namespace brisko::lab {
namespace {

const xmlChar* bytesOf(const char* text) { return reinterpret_cast<const xmlChar*>(text); }

}  // namespace

std::optional<std::vector<std::string>> textsAt(const std::string& document, const std::string& xpath) {
  constexpr int quietly = XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_NONET;
  const std::unique_ptr<xmlDoc, void (*)(xmlDoc*)> tree(
      xmlReadMemory(document.data(), static_cast<int>(document.size()), nullptr, nullptr, quietly),
      xmlFreeDoc);
  if (!tree) return std::nullopt;
  const std::unique_ptr<xmlXPathContext, void (*)(xmlXPathContext*)> context(xmlXPathNewContext(tree.get()),
                                                                             xmlXPathFreeContext);
  xmlXPathRegisterNs(context.get(), bytesOf("s"), bytesOf("http://www.w3.org/2000/svg"));
  const std::unique_ptr<xmlXPathObject, void (*)(xmlXPathObject*)> found(
      xmlXPathEvalExpression(bytesOf(xpath.c_str()), context.get()), xmlXPathFreeObject);
  std::vector<std::string> texts;
  const int count = found != nullptr && found->nodesetval != nullptr ? found->nodesetval->nodeNr : 0;
  for (int index = 0; index < count; ++index) {
    const std::unique_ptr<xmlChar, void (*)(void*)> text(xmlNodeGetContent(found->nodesetval->nodeTab[index]),
                                                         [](void* memory) { xmlFree(memory); });
    texts.emplace_back(reinterpret_cast<const char*>(text.get()));
  }
  return texts;
}

}  // namespace brisko::lab
