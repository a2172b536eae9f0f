#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "registration/rcs/rcs_document.h"

namespace altium_registration {

/// What is to be registered in one instance. All texts are bytes in the ANSI code page, as they
/// stand in the file.
struct Spec {
  /// Full path of the deployed script project.
  std::string script_project_path;
  /// Full path of the button's image.
  std::string image_path;
  /// The button's hint.
  std::string description;
  /// Identifier of the toolbar that receives the button.
  std::string anchor_target;
  /// Identifier of the toolbar item beside which the button is placed.
  std::string anchor_reference;
};

/// The toolbars of hosts up to major version 17, and of later ones. The button has an image for
/// each.
enum class ToolbarKind : std::uint8_t { Legacy = 1, ActiveBar = 2 };

/// A place on the host's own toolbars where the button can stand.
struct ToolbarAnchor {
  std::string_view target;
  std::string_view reference;
  ToolbarKind kind = ToolbarKind::Legacy;
};

/// The places known so far. Of several on one host's bar the first counts, so further ones are
/// appended: a button that stands then stays where it is.
inline constexpr std::array kToolbarAnchors = std::to_array<ToolbarAnchor>({
    {"TLPCBToolbar", "TBPCB_StandardToolbar760", ToolbarKind::Legacy},
    {"TopBarPCB", "TopBarPCB010", ToolbarKind::ActiveBar},
});

/// Computes the text of a customization file with the button installed or removed.
///
/// `text` is the file's bytes; `new_text` must be another string. Records of other people keep
/// every byte. Installing a button that already stands as `spec` says gives `text` back unchanged,
/// and so does removing one that is not there. `carried_kinds` names record kinds beyond the six
/// known ones that are let through (see RcsParseOptions).
///
/// Errors: the messages of RcsDocument::Parse, "Unsafe script project path.", "No validated toolbar
/// anchor; manual registration required.", and those of ValidateRcs on the new text. After a
/// failure `new_text` may hold a text, which must not be written anywhere.
bool EditRcs(std::string_view text, const Spec& spec, bool install, std::string& new_text,
             std::wstring& error, RcsKinds carried_kinds = {});

/// Whether the file holds exactly the button that `spec` describes, once and visible
/// (`expect_installed`), or no command of ours at all.
///
/// Errors: the messages of RcsDocument::Parse, "Expected one unsuppressed Bridge command, custom
/// link and toolbar placement." and "Bridge command remains.".
bool ValidateRcs(std::string_view text, const Spec& spec, bool expect_installed,
                 std::wstring& error, RcsKinds carried_kinds = {});

/// Whether the toolbar definitions in `text` have a toolbar `tree` that holds exactly one `item`.
///
/// Only the toolbar's own block is parsed, from its first line to the next line that begins with
/// "End": the host's file may hold anything else. A block that cannot be parsed has no anchor.
bool HasAnchor(std::string_view text, std::string_view tree, std::string_view item,
               RcsKinds carried_kinds = {});

}  // namespace altium_registration
