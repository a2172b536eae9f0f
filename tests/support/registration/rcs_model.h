#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "registration/rcs/toolbar_edit.h"

/// Implements customization files and the toolbar edit a second time, in a naive way: with copies,
/// recursion and linear searches. Tests and fuzzers compare the product with it.
namespace rcs_model {

struct Token {
  std::string text;
  std::size_t start = 0;
  std::size_t end = 0;
  bool quoted = false;
};

struct Node {
  std::string kind;
  std::string identifier;
  std::map<std::string, std::string> attributes;
  std::size_t start = 0;
  std::size_t end = 0;
  std::size_t end_keyword = 0;
  std::vector<Node> children;

  std::string Value(const std::string& name) const {
    const auto found = attributes.find(name);
    return found == attributes.end() ? std::string() : found->second;
  }
};

using Nodes = std::vector<Node>;
using Kinds = std::vector<std::string>;

/// The exception for an invalid text; its message is bytes.
struct Refusal {
  std::string text;
};

inline std::vector<Token> Tokens(const std::string& raw) {
  std::vector<Token> tokens;
  std::size_t i = raw.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
  while (i < raw.size()) {
    const char byte = raw[i];
    if (byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n') {
      ++i;
      continue;
    }
    Token token;
    token.start = i;
    if (byte == '\'') {
      token.quoted = true;
      ++i;
      while (true) {
        if (i >= raw.size()) {
          throw Refusal{"Unclosed RCS quote."};
        }
        if (raw[i] != '\'') {
          token.text += raw[i++];
        } else if (i + 1 < raw.size() && raw[i + 1] == '\'') {
          token.text += '\'';
          i += 2;
        } else {
          ++i;
          break;
        }
      }
    } else if (byte == '=') {
      token.text = "=";
      ++i;
    } else {
      while (i < raw.size() &&
             std::string_view(" \t\r\n='").find(raw[i]) == std::string_view::npos) {
        token.text += raw[i++];
      }
    }
    token.end = i;
    tokens.push_back(token);
  }
  return tokens;
}

class Parser {
 public:
  Parser(const std::string& raw, bool strict, const Kinds& extra) : strict_(strict), extra_(extra) {
    if (raw.size() > 8388608 || raw.find('\0') != std::string::npos) {
      throw Refusal{"Unsupported RCS size/encoding."};
    }
    tokens_ = Tokens(raw);
  }

  Nodes Run() {
    Nodes nodes;
    while (at_ < tokens_.size()) {
      nodes.push_back(Record(0));
    }
    return nodes;
  }

 private:
  bool IsEquals(std::size_t at) const {
    return at < tokens_.size() && !tokens_[at].quoted && tokens_[at].text == "=";
  }

  Node Record(int depth) {
    static const std::set<std::string> kKinds = {"Tree",      "PL",       "Link",
                                                 "Insertion", "Deletion", "Separator"};
    if (depth > 32 || at_ + 1 >= tokens_.size()) {
      throw Refusal{"Malformed RCS nesting."};
    }
    Node node;
    node.kind = tokens_[at_].text;
    node.start = tokens_[at_].start;
    bool known = kKinds.count(node.kind) != 0;
    for (const std::string& kind : extra_) {
      known = known || kind == node.kind;
    }
    if (!known) {
      throw Refusal{"Unknown RCS record: " + node.kind};
    }
    ++at_;
    node.identifier = tokens_[at_].text;
    ++at_;
    if (node.identifier.empty() || node.identifier == "End" ||
        (!identifiers_.insert(node.identifier).second && strict_)) {
      throw Refusal{"Duplicate/invalid RCS identifier."};
    }
    while (true) {
      if (at_ >= tokens_.size()) {
        throw Refusal{"Unterminated RCS record."};
      }
      if (!tokens_[at_].quoted && tokens_[at_].text == "End") {
        node.end_keyword = tokens_[at_].start;
        node.end = tokens_[at_].end;
        ++at_;
        return node;
      }
      if (IsEquals(at_ + 1)) {
        if (at_ + 2 >= tokens_.size() || node.attributes.count(tokens_[at_].text) != 0) {
          throw Refusal{"Invalid RCS attribute."};
        }
        node.attributes[tokens_[at_].text] = tokens_[at_ + 2].text;
        at_ += 3;
      } else if (node.kind == "Tree" || node.kind == "Insertion") {
        node.children.push_back(Record(depth + 1));
      } else {
        throw Refusal{"Unexpected RCS child."};
      }
    }
  }

  bool strict_;
  Kinds extra_;
  std::vector<Token> tokens_;
  std::size_t at_ = 0;
  std::set<std::string> identifiers_;
};

inline Nodes Parse(const std::string& raw, bool strict, const Kinds& extra) {
  return Parser(raw, strict, extra).Run();
}

template <typename Visit>
void Walk(const Nodes& nodes, const Visit& visit, const Node* parent = nullptr) {
  for (const Node& node : nodes) {
    visit(node, parent);
    Walk(node.children, visit, &node);
  }
}

inline std::string Lower(std::string text) {
  for (char& byte : text) {
    byte = byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + 32) : byte;
  }
  return text;
}

inline std::string Normal(std::string text) {
  for (char& byte : text) {
    byte = byte == '/' ? '\\' : byte;
  }
  return Lower(text);
}

struct References {
  std::set<std::string> commands;
  std::set<std::string> links;
  std::map<std::string, std::string> placed;
  std::size_t suppressions = 0;
};

inline bool Suppresses(const Node& node, const References& references) {
  const auto link = references.placed.find(node.Value("DeleteID"));
  return node.kind == "Deletion" && link != references.placed.end() &&
         link->second == node.Value("TargetID");
}

inline References FindAll(const Nodes& nodes, const altium_registration::Spec& spec) {
  const std::string parameters =
      Normal("ProjectName=" + spec.script_project_path + "|ProcName=Kestrune.pas>RunKestrune");
  References found;
  Walk(nodes, [&](const Node& node, const Node*) {
    if (node.kind == "PL" && Lower(node.Value("Command")) == "scriptingsystem:runscript" &&
        Normal(node.Value("Params")) == parameters) {
      found.commands.insert(node.identifier);
    }
  });
  Walk(nodes, [&](const Node& node, const Node* parent) {
    if (node.kind == "Link" && found.commands.count(node.Value("PLID")) != 0) {
      found.links.insert(node.identifier);
      if (parent != nullptr && parent->kind == "Insertion") {
        found.placed[node.identifier] = parent->Value("TargetID");
      }
    }
  });
  Walk(nodes, [&](const Node& node, const Node*) {
    found.suppressions += Suppresses(node, found) ? 1U : 0U;
  });
  return found;
}

template <typename Condition>
void LinksBelow(const Nodes& nodes, const References& references, bool below,
                const Condition& condition, std::set<std::string>& found) {
  for (const Node& node : nodes) {
    if (below && node.kind == "Link" && references.links.count(node.identifier) != 0) {
      found.insert(node.identifier);
    }
    LinksBelow(node.children, references, below || condition(node), condition, found);
  }
}

inline bool Installed(const Nodes& nodes, const altium_registration::Spec& spec) {
  const References found = FindAll(nodes, spec);
  std::set<std::string> custom;
  LinksBelow(
      nodes, found, false,
      [](const Node& node) { return node.kind == "Tree" && node.identifier == "PCBCustom"; },
      custom);
  std::set<std::string> toolbar;
  LinksBelow(
      nodes, found, false,
      [&](const Node& node) {
        return node.kind == "Insertion" && node.Value("TargetID") == spec.anchor_target &&
               node.Value("RefID0") == spec.anchor_reference;
      },
      toolbar);
  return found.commands.size() == 1 && custom.size() == 1 && toolbar.size() == 1 &&
         found.placed.size() == 1 && found.suppressions == 0;
}

inline void Validate(const std::string& text, const altium_registration::Spec& spec,
                     bool expect_installed, const Kinds& extra) {
  const Nodes nodes = Parse(text, true, extra);
  if (expect_installed && !Installed(nodes, spec)) {
    throw Refusal{"Expected one unsuppressed Bridge command, custom link and toolbar placement."};
  }
  if (!expect_installed && !FindAll(nodes, spec).commands.empty()) {
    throw Refusal{"Bridge command remains."};
  }
}

inline bool Owned(const Node& node, const References& references) {
  if (node.kind == "PL") {
    return references.commands.count(node.identifier) != 0;
  }
  if (node.kind == "Link") {
    return references.links.count(node.identifier) != 0;
  }
  if (node.kind == "Insertion") {
    bool all = !node.children.empty();
    for (const Node& child : node.children) {
      all = all && child.kind == "Link" && Owned(child, references);
    }
    return all;
  }
  return Suppresses(node, references);
}

/// Collects the button's records, none inside another, in file order.
inline void CollectOwned(const Nodes& nodes, const References& references,
                         std::vector<Node>& owned) {
  for (const Node& node : nodes) {
    if (Owned(node, references)) {
      owned.push_back(node);
    } else {
      CollectOwned(node.children, references, owned);
    }
  }
}

/// Returns the text without the records of the button, with a blank where two quoted texts would
/// otherwise merge.
inline std::string Cut(std::string text, const Nodes& nodes, const References& references) {
  std::vector<Node> owned;
  CollectOwned(nodes, references, owned);
  for (auto node = owned.rbegin(); node != owned.rend(); ++node) {
    text.erase(node->start, node->end - node->start);
    if (node->start > 0 && node->start < text.size() && text[node->start - 1] == '\'' &&
        text[node->start] == '\'') {
      text.insert(node->start, " ");
    }
  }
  return text;
}

inline std::string Replaced(std::string text, const std::string& what, const std::string& with) {
  for (std::size_t at = text.find(what); at != std::string::npos;
       at = text.find(what, at + with.size())) {
    text.replace(at, what.size(), with);
  }
  return text;
}

inline std::string Quoted(const std::string& value) {
  std::string text = "'";
  for (const char byte : value) {
    text += byte == '\'' ? std::string("''") : std::string(1, byte);
  }
  return text + "'";
}

inline std::string TakeName(std::set<std::string>& used, const std::string& base) {
  std::string name = base;
  for (int n = 1; !used.insert(name).second; ++n) {
    name = base + "_" + std::to_string(n);
  }
  return name;
}

struct Outcome {
  bool success = false;
  std::string text;
  std::string error;
};

inline std::string Add(const std::string& cut, const altium_registration::Spec& spec,
                       const std::string& base, const Kinds& extra) {
  const Nodes nodes = Parse(cut, true, extra);
  std::set<std::string> used;
  Walk(nodes, [&](const Node& node, const Node*) { used.insert(node.identifier); });
  const std::string command = TakeName(used, base);
  const std::string custom_link = TakeName(used, "KestruneCommandLink");
  const std::string insertion = TakeName(used, "KestruneToolbar");
  const std::string toolbar_link = TakeName(used, "KestruneToolbarLink");
  const std::string line = cut.find('\n') == std::string::npos     ? "\r\n"
                           : cut.find("\r\n") != std::string::npos ? "\r\n"
                                                                   : "\n";
  const std::string custom = "    Link " + custom_link + " PLID=" + Quoted(command) + " End" + line;
  std::string text = cut;
  const Node* tree = nullptr;
  for (const Node& node : nodes) {
    tree = node.kind == "Tree" && node.identifier == "PCBCustom" ? &node : tree;
  }
  if (tree != nullptr) {
    text.insert(tree->end_keyword, line + custom);
  } else {
    if (!text.empty() && text.back() != '\n') {
      text += line;
    }
    text += "Tree PCBCustom Caption='[Custom]' TopLevel='True'" + line;
    text += custom;
    text += "End" + line;
  }
  if (text.empty() || text.back() != '\n') {
    text += line;
  }
  text += "PL " + command + " Command='ScriptingSystem:RunScript' Params=" +
          Quoted("ProjectName=" + spec.script_project_path + "|ProcName=Kestrune.pas>RunKestrune") +
          " Caption='Kestrune' Image=" + Quoted(spec.image_path) +
          " Description=" + Quoted(spec.description) + " DefaultChecked=0 End" + line;
  text += "Insertion " + insertion + " TargetID=" + Quoted(spec.anchor_target) +
          " RefID0=" + Quoted(spec.anchor_reference) + line;
  text += "    Link " + toolbar_link + " PLID=" + Quoted(command) + " End" + line;
  text += "End" + line;
  return text;
}

inline Outcome Edit(const std::string& text, const altium_registration::Spec& spec, bool install,
                    const Kinds& extra) {
  Outcome outcome;
  try {
    const Nodes nodes = Parse(text, true, extra);
    if (spec.script_project_path.empty() ||
        spec.script_project_path.find_first_of("\r\n|") != std::string::npos) {
      throw Refusal{"Unsafe script project path."};
    }
    if (install && (spec.anchor_target.empty() || spec.anchor_reference.empty())) {
      throw Refusal{"No validated toolbar anchor; manual registration required."};
    }
    const References found = FindAll(nodes, spec);
    if (install && Installed(nodes, spec)) {
      bool same = true;
      Walk(nodes, [&](const Node& node, const Node*) {
        if (node.kind == "PL" && found.commands.count(node.identifier) != 0) {
          same = same && node.Value("Image") == spec.image_path &&
                 node.Value("Description") == spec.description;
        }
      });
      if (same) {
        return {true, text, ""};
      }
    }
    const std::string base =
        found.commands.size() == 1 ? *found.commands.begin() : std::string("PLKestrune");
    outcome.text = Cut(text, nodes, found);
    if (install) {
      outcome.text = Add(outcome.text, spec, base, extra);
    }
    Validate(outcome.text, spec, install, extra);
    outcome.success = true;
  } catch (const Refusal& refusal) {
    outcome.error = refusal.text;
  }
  return outcome;
}

inline bool HasAnchor(const std::string& text, const std::string& tree, const std::string& item,
                      const Kinds& extra) {
  const std::string opening = "Tree " + tree + " ";
  std::size_t line = 0;
  while (text.compare(line, opening.size(), opening) != 0) {
    line = text.find('\n', line);
    if (line == std::string::npos || ++line >= text.size()) {
      return false;
    }
  }
  std::size_t end = line;
  while (true) {
    end = text.find('\n', end);
    if (end == std::string::npos) {
      return false;
    }
    ++end;
    if (text.compare(end, 3, "End") == 0) {
      break;
    }
  }
  try {
    const Nodes nodes = Parse(text.substr(line, end + 3 - line), false, extra);
    int count = 0;
    Walk(nodes.at(0).children,
         [&](const Node& node, const Node*) { count += node.identifier == item ? 1 : 0; });
    return count == 1;
  } catch (const Refusal&) {
    return false;
  }
}

}  // namespace rcs_model
