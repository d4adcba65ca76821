#include "job.h"

#include <unistd.h>

#include <algorithm>
#include <sstream>

namespace runlet_test {
namespace {

std::string element(const std::string& name, const std::string& text) {
  std::ostringstream out;
  out << "<" << name << ">" << escapeXml(text) << "</" << name << ">";
  return out.str();
}

std::string inBraces(const std::string& text) {
  std::string braced = "{";
  return braced.append(text).append("}");
}

}  // namespace

std::string escapeXml(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '\t':
        escaped += "&#9;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

Job::Job()
    : elements(
          {{"uid", std::to_string(getuid())}, {"gid", std::to_string(getgid())}, {"umask", "18"}}) {
}

Job& Job::set(const std::string& name, const std::string& text) {
  remove(name);
  elements.emplace_back(name, text);
  return *this;
}

Job& Job::remove(const std::string& name) {
  std::erase_if(elements, [&](const auto& row) { return row.first == name; });
  return *this;
}

std::string Job::text() const {
  std::ostringstream out;
  out << "<Job>\n<cmdData>\n";
  if (!arguments.empty()) {
    // CDATA, so that every byte is kept unchanged.
    out << "<Arguments><![CDATA[" << inBraces(arguments) << "]]></Arguments>\n";
  }
  for (const auto& [name, value] : elements) out << element(name, value) << "\n";
  out << "<TaskList>\n";
  for (const std::string& task : tasks) {
    out << "<Task>" << element("Params", inBraces(task)) << "</Task>\n";
  }
  out << "</TaskList>\n<JobParams>\n";
  for (const auto& [name, value] : params) {
    out << "<Param>" << element("Name", inBraces(name)) << element("Value", inBraces(value))
        << "</Param>\n";
  }
  out << "</JobParams>\n</cmdData>\n</Job>\n";
  return out.str();
}

}  // namespace runlet_test
