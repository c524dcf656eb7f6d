// Form bodies and the headers that say where a request comes from.
#include <fuzzer/FuzzedDataProvider.h>

#include <cctype>
#include <cstdlib>
#include <string>

#include "shell/http_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const std::string content_type = in.ConsumeRandomLengthString(64);
  arven::shell::RequestSource source{in.ConsumeRandomLengthString(32),
                                     in.ConsumeRandomLengthString(64),
                                     in.ConsumeRandomLengthString(64)};
  const int port = in.ConsumeIntegralInRange(1, 65535);
  const std::string body = in.ConsumeRemainingBytesAsString();

  arven::shell::is_form_content_type(content_type);
  // Only our own address can pass, whichever header carries it.
  if (arven::shell::from_own_pages(source, port) && source.sec_fetch_site.empty()) {
    std::string own = source.origin.empty() ? source.referer : source.origin;
    for (char& c : own) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const std::string p = std::to_string(port);
    if (own.rfind("http://127.0.0.1:" + p, 0) != 0 && own.rfind("http://localhost:" + p, 0) != 0)
      std::abort();
  }
  if (auto fields = arven::shell::parse_form_body(body)) {
    for (const auto& [name, value] : *fields) {
      if (name.empty() || name.size() > 64) std::abort();
      if (name.find('\0') != std::string::npos || value.find('\0') != std::string::npos)
        std::abort();
      // A field never holds more than the body it came from.
      if (value.size() > body.size()) std::abort();
    }
  }
  return 0;
}
