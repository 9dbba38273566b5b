#include "host/common/json_text.h"

#include <memory>
#include <sstream>

namespace qrix::host {
namespace {

// Deep nesting buys nothing here and would only cost stack.
constexpr int kJsonDepthLimit = 64;

const Json::CharReaderBuilder& StrictBuilder() {
  static const Json::CharReaderBuilder builder = [] {
    Json::CharReaderBuilder b;
    Json::CharReaderBuilder::strictMode(&b.settings_);
    b.settings_["strictRoot"] = false;  // a bare 6881 or true is a value too
    b.settings_["stackLimit"] = kJsonDepthLimit;
    return b;
  }();
  return builder;
}

}  // namespace

std::string JsonText(const Json::Value& value) {
  // Made once, as the reader below: making a writer looks up each of its settings, and a new
  // stream sets up its locale; every response is written through them.
  thread_local const std::unique_ptr<Json::StreamWriter> writer = [] {
    Json::StreamWriterBuilder b;
    b["indentation"] = "";
    b["emitUTF8"] = true;
    return std::unique_ptr<Json::StreamWriter>(b.newStreamWriter());
  }();
  thread_local std::ostringstream text;
  text.str(std::string());
  text.clear();
  writer->write(value, &text);
  return text.str();
}

bool ParseStrictJson(std::string_view text, Json::Value* out) {
  // Made once: making a reader looks up each of its settings, and every field of every request
  // is tried as JSON. A reader starts afresh on each parse.
  thread_local const std::unique_ptr<Json::CharReader> reader(StrictBuilder().newCharReader());
  try {
    // No error text: nobody reads it, and a value that is not JSON (most fields) would pay
    // for its formatting.
    return reader->parse(text.data(), text.data() + text.size(), out, nullptr);
  } catch (const Json::Exception&) {
    return false;  // nesting beyond the limit
  }
}

}  // namespace qrix::host
