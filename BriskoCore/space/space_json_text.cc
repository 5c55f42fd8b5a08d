#include "space/space_json_text.h"

namespace brisko {
namespace {

// A node's text has its children as the empty array at this spot, found by
// key: inside a string value every quote is escaped, so the pattern can only
// be the key itself.
constexpr std::string_view kCompactChildren = "\"children\":[]";
constexpr std::string_view kPrettyChildren = "\"children\": []";

SpaceNode withoutChildren(const SpaceNode& node) {
  SpaceNode shallow;
  shallow.id = node.id;
  shallow.name = node.name;
  shallow.path = node.path;
  shallow.bytes = node.bytes;
  shallow.itemCount = node.itemCount;
  shallow.isPartial = node.isPartial;
  shallow.kind = node.kind;
  shallow.accessDenied = node.accessDenied;
  shallow.sharedBytes = node.sharedBytes;
  return shallow;
}

void appendIndent(std::string& out, size_t level) {
  out.push_back('\n');
  out.append(level * 2, ' ');
}

// `text` (one value, written as if at level 0) is appended as a value that
// starts on a line of indentation `level`.
void appendReindented(std::string& out, std::string_view text, size_t level) {
  for (char character : text) {
    if (character == '\n') {
      appendIndent(out, level);
    } else {
      out.push_back(character);
    }
  }
}

void appendPiece(std::string& out, std::string_view text, size_t level, bool pretty) {
  if (pretty) {
    appendReindented(out, text, level);
  } else {
    out.append(text);
  }
}

void appendNodes(std::string& out, const std::vector<SpaceNode>& nodes, size_t level, bool pretty);

// Appends `shallowText` (whose one empty children array stands for
// `children`) at indentation `level`, splicing the children in.
void appendWithChildren(std::string& out, std::string_view shallowText,
                        const std::vector<SpaceNode>& children, size_t level, bool pretty) {
  const std::string_view marker = pretty ? kPrettyChildren : kCompactChildren;
  const size_t found = children.empty() ? std::string_view::npos : shallowText.find(marker);
  if (found == std::string_view::npos) {
    appendPiece(out, shallowText, level, pretty);
    return;
  }
  const std::string_view head = shallowText.substr(0, found + marker.size() - 1);  // up to '['
  const std::string_view tail = shallowText.substr(found + marker.size() - 1);     // from ']'
  // The key's own indentation tells the level of the array's contents.
  const size_t lineStart = head.rfind('\n');
  const size_t keyLevel =
      pretty && lineStart != std::string_view::npos ? (found - lineStart - 1) / 2 + level : level;
  appendPiece(out, head, level, pretty);
  appendNodes(out, children, keyLevel + 1, pretty);
  if (pretty) appendIndent(out, keyLevel);
  appendPiece(out, tail, level, pretty);
}

void appendNode(std::string& out, const SpaceNode& node, size_t level, bool pretty) {
  const std::string text = encodeJson(withoutChildren(node), pretty);
  appendWithChildren(out, text, node.children, level, pretty);
}

void appendNodes(std::string& out, const std::vector<SpaceNode>& nodes, size_t level, bool pretty) {
  for (size_t i = 0; i < nodes.size(); ++i) {
    if (pretty) appendIndent(out, level);
    appendNode(out, nodes[i], level, pretty);
    if (i + 1 < nodes.size()) out.push_back(',');
  }
}

// `record` holds `tree` stripped of its children; its text gets them back.
template <class Record>
std::string encodeAroundTree(const Record& record, const SpaceNode& tree, bool pretty) {
  const std::string text = encodeJson(record, pretty);
  std::string out;
  appendWithChildren(out, text, tree.children, 0, pretty);
  return out;
}

}  // namespace

std::string encodeSpaceEvent(const SpaceEvent& event) {
  if (event.node.has_value() == event.report.has_value()) return encodeJson(event);
  SpaceEvent shallow;
  shallow.protocolVersion = event.protocolVersion;
  shallow.kind = event.kind;
  shallow.progress = event.progress;
  shallow.warning = event.warning;
  if (event.node) {
    shallow.node = withoutChildren(*event.node);
    return encodeAroundTree(shallow, *event.node, false);
  }
  shallow.report = SpaceReport{event.report->protocolVersion, event.report->scannedAt,
                               withoutChildren(event.report->root), event.report->largeFiles,
                               event.report->warnings};
  return encodeAroundTree(shallow, event.report->root, false);
}

std::string encodeSpaceCacheEnvelope(const SpaceScanCacheEnvelope& envelope, bool pretty) {
  SpaceScanCacheEnvelope shallow;
  shallow.schemaVersion = envelope.schemaVersion;
  shallow.namingLanguage = envelope.namingLanguage;
  shallow.eventState = envelope.eventState;
  shallow.report = SpaceReport{envelope.report.protocolVersion, envelope.report.scannedAt,
                               withoutChildren(envelope.report.root), envelope.report.largeFiles,
                               envelope.report.warnings};
  return encodeAroundTree(shallow, envelope.report.root, pretty);
}

}  // namespace brisko
