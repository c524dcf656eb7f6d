#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "shell/web_ui.h"

namespace arven::shell {

// Checks and parsers of what a request brings in: its path, its form body,
// and the headers that say which page sent it. None of them trusts the
// request; each answers nullopt or false for anything it cannot vouch for.

// Percent-decodes a URL path; nullopt for malformed escapes or a NUL.
std::optional<std::string> url_decode(std::string_view text);

// The fields of an application/x-www-form-urlencoded body ("+" is a space).
// The first of repeated fields counts. nullopt for a malformed escape, a NUL,
// or a field name that is empty or longer than 64 bytes.
std::optional<Params> parse_form_body(std::string_view body);

// True when a Content-Type header names a form body
// (application/x-www-form-urlencoded, with or without parameters).
bool is_form_content_type(std::string_view content_type);

// The Content-Disposition of a download; quotes, backslashes and control
// characters of the name become '_' so the header stays one quoted string.
std::string attachment_header(std::string name);

// The file of the report folder that a request path names, or nullopt when
// the path would leave the folder, names no allowed kind of file (by its
// own name and by the name of the file it resolves to), or names nothing.
// `relative` is the URL path after the window prefix, still percent-encoded.
std::optional<std::filesystem::path> resolve_static(const std::filesystem::path& folder,
                                                    std::string_view relative);

// The MIME type of an allowed kind of file ("" for any other).
std::string mime_type_of(const std::filesystem::path& file);

// The headers by which a browser says where a request comes from.
struct RequestSource {
  std::string sec_fetch_site;  // Sec-Fetch-Site
  std::string origin;          // Origin
  std::string referer;         // Referer
};

// True when the request was sent by a page of the program itself, at
// http://127.0.0.1:PORT or http://localhost:PORT. Sec-Fetch-Site decides when
// the browser sent it; else the Origin; else the Referer. A request that
// names no source at all is not one.
bool from_own_pages(const RequestSource& source, int port);

// The value of one cookie of a Cookie header ("" when it is not there).
std::string cookie_value(std::string_view cookie_header, std::string_view name);

// Compares a presented token with the session's in constant time; an empty
// token never matches.
bool same_token(std::string_view presented, std::string_view token);

}  // namespace arven::shell
