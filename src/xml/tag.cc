#include "xml/tag.h"

#include <algorithm>

#include "common/assert.h"

namespace Xml {

std::u16string Tag::GetText() const { return Text.empty() ? std::u16string() : Text[0]; }

Tag* Tag::FindChild(const std::string& name) const {
  for (const auto& child : Children)
    if (child->Name == name) return child.get();
  return nullptr;
}

Tag* Tag::FindChild(const std::string& name, const std::string& attribute,
                    const std::u16string& value) const {
  for (const auto& child : Children) {
    if (child->Name != name) continue;
    const auto found = child->Attributes.find(attribute);
    if (found != child->Attributes.end() && found->second == value) return child.get();
  }
  return nullptr;
}

std::u16string Tag::GetAttribute(const std::string& name, const std::u16string& fallback) const {
  const auto found = Attributes.find(name);
  return found == Attributes.end() ? fallback : found->second;
}

void Tag::SetAttribute(const std::string& name, std::u16string value) {
  Attributes.insert_or_assign(name, std::move(value));
}

Tag* Tag::InsertChild(std::size_t position, std::unique_ptr<Tag> child) {
  if (!VR_ASSERT(child)) return nullptr;
  if (!VR_ASSERT(position >= 1 && position <= Text.size()))
    position = std::clamp<std::size_t>(position, 1, Text.size());
  Tag* added = child.get();
  added->Parent = this;
  Children.insert(Children.begin() + static_cast<std::ptrdiff_t>(position - 1), std::move(child));
  Text.insert(Text.begin() + static_cast<std::ptrdiff_t>(position), std::u16string());
  return added;
}

std::unique_ptr<Tag> Tag::RemoveChild(const Tag* child) {
  const auto found = std::find_if(Children.begin(), Children.end(),
                                   [child](const auto& c) { return c.get() == child; });
  if (found == Children.end()) return nullptr;
  const auto i = static_cast<std::size_t>(found - Children.begin());
  std::unique_ptr<Tag> removed = std::move(*found);
  Children.erase(found);
  removed->Parent = nullptr;

  if (!VR_ASSERT(Text.size() >= i + 2)) Text.resize(i + 2);
  std::u16string& left = Text[i];
  std::u16string& right = Text[i + 1];
  // The child usually sat between two single spaces (or a space and the end
  // of the element); keeping both would double the gap.
  const bool rightIsLast = i + 2 == Text.size();
  if (!left.empty() && left.back() == u' ' &&
      ((!right.empty() && right.front() == u' ') || (rightIsLast && right.empty())))
    left.pop_back();
  if (i == 0 && left.empty() && !right.empty() && right.front() == u' ') right.erase(0, 1);
  left += right;
  Text.erase(Text.begin() + static_cast<std::ptrdiff_t>(i + 1));
  return removed;
}

}  // namespace Xml
