#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "registration/rcs/rcs.h"

namespace altium_registration {

/// What is to be registered in one instance. All texts are bytes in the ANSI code page, as in the
/// file.
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
  /// Returns whether a byte of these texts begins a character of two bytes; null where none does.
  /// The second byte of such a character may have the value of "|".
  bool (*is_lead_byte)(char byte) = nullptr;
};

/// The toolbars of hosts up to major version 17, and of later ones. The button has an image for
/// each.
enum class ToolbarKind : std::uint8_t { Legacy = 1, ActiveBar = 2 };

/// A place for the button on the host's own toolbars.
struct ToolbarAnchor {
  std::string_view target;
  std::string_view reference;
  ToolbarKind kind = ToolbarKind::Legacy;
};

/// The places known so far, in the order in which they are tried. Of several of one kind on a
/// host's toolbars the last one counts.
inline constexpr std::array kToolbarAnchors = std::to_array<ToolbarAnchor>({
    {"TLPCBToolbar", "TBPCB_StandardToolbar760", ToolbarKind::Legacy},
    {"TopBarPCB", "TopBarPCB010", ToolbarKind::ActiveBar},
});

/// Computes the text of a customization file with the button installed or removed.
///
/// `rcs` must be parsed strictly. Records of other people keep every byte. Installing a button that
/// is there as `spec` says gives the text back unchanged, and so does removing one that is not
/// there. Every new text is parsed by the rules by which `rcs` was, and is in the wanted state.
///
/// Errors: "Unsafe script project path.", "No validated toolbar anchor; manual registration
/// required.", and for the new text the messages of Rcs::Parse and of ValidateRcs. After a failure
/// `new_text` may hold a text, which must not be written anywhere.
bool EditRcs(const Rcs& rcs, const Spec& spec, bool install, std::string& new_text,
             std::wstring& error);

/// Returns whether a strictly parsed file holds exactly the button that `spec` describes, once and
/// visible (`expect_installed`), or no command of ours at all.
///
/// Errors: "Expected one unsuppressed Bridge command, custom link and toolbar placement." and
/// "Bridge command remains.".
bool ValidateRcs(const Rcs& rcs, const Spec& spec, bool expect_installed, std::wstring& error);

/// Returns whether the toolbar definitions in `text` have a toolbar `tree` that holds exactly one
/// `item`. `extra_record_kinds` are let through as in RcsOptions.
///
/// Only the toolbar's own block is parsed, from its first line to the next line that begins with
/// "End": the host's file may hold anything else. A block that cannot be parsed has no anchor.
bool HasAnchor(std::string_view text, std::string_view tree, std::string_view item,
               const std::vector<std::string>& extra_record_kinds = {});

}  // namespace altium_registration
