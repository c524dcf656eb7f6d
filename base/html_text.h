#pragma once

#include <string>
#include <string_view>

namespace arven {

// Text with &, <, >, " and ' replaced by entities, safe inside an element or
// a quoted attribute. Text that is not valid UTF-8 is repaired first: a page
// gets valid UTF-8 only.
std::string html_escape(std::string_view text);

// The plain text of a cell: &amp; &lt; &gt; &quot; &#39; replaced by & < > " '.
std::string html_unescape(std::string_view text);

}  // namespace arven
