// Files that are part of the program: what a browser loads. add_assets (cmake/) makes the sources that hold
// them.
#pragma once

#include <span>
#include <string_view>

namespace web {

struct Asset {
  std::string_view name;  // "panel.js"
  std::string_view content_type;
  std::string_view content;
};
using Assets = std::span<const Asset>;

// The modules and styles of this folder.
Assets SharedAssets();

}  // namespace web
