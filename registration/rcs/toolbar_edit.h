#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "registration/rcs/rcs.h"

namespace altium_registration {

/// Describes the button to register in one instance. All texts are bytes in the ANSI code page, as
/// in the file.
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
  /// Returns whether a byte of these texts begins a character of two bytes; null when none does.
  /// The second byte of such a character may have the value of "|".
  bool (*is_lead_byte)(char byte) = nullptr;
};

/// Lists the kinds of toolbars: that of hosts up to major version 17, and that of later ones. The
/// button has an image for each kind.
enum class ToolbarKind : std::uint8_t { Legacy = 1, ActiveBar = 2 };

/// Holds a place for the button on the host's own toolbars.
struct ToolbarAnchor {
  std::string_view target;
  std::string_view reference;
  ToolbarKind kind = ToolbarKind::Legacy;
};

/// The known places, in the order in which they are tried. Of several places of one kind on a
/// host's toolbars the last one is used.
inline constexpr std::array kToolbarAnchors = std::to_array<ToolbarAnchor>({
    {"TLPCBToolbar", "TBPCB_StandardToolbar760", ToolbarKind::Legacy},
    {"TopBarPCB", "TopBarPCB010", ToolbarKind::ActiveBar},
});

/// Computes the text of a customization file with the button installed or removed.
///
/// `rcs` must be parsed strictly. The bytes of all other records are preserved. The text is
/// unchanged when a button to install exists as `spec` describes it, or a button to remove is
/// absent. A changed text has been parsed by the rules of `rcs` and validated.
///
/// Errors: "Unsafe script project path.", "No validated toolbar anchor; manual registration
/// required.", and for the new text the messages of Rcs::Parse and of ValidateRcs. After a failure
/// `new_text` is unspecified and must not be used.
bool EditRcs(const Rcs& rcs, const Spec& spec, bool install, std::string& new_text,
             std::wstring& error);

/// Returns whether a strictly parsed file has one visible button at the place that `spec` describes
/// and no other of ours (`expect_installed`), or has none at all. Does not compare image and hint.
///
/// Errors: "Expected one unsuppressed Bridge command, custom link and toolbar placement." and
/// "Bridge command remains.".
bool ValidateRcs(const Rcs& rcs, const Spec& spec, bool expect_installed, std::wstring& error);

/// Returns whether the toolbar definitions in `text` have a toolbar `tree` with exactly one `item`.
/// `extra_record_kinds` are accepted as in RcsOptions.
///
/// Parses only the toolbar's own block, from its first line to the next line that begins with
/// "End", since the rest of the host's file is unknown. A block that cannot be parsed has no
/// anchor.
bool HasAnchor(std::string_view text, std::string_view tree, std::string_view item,
               const std::vector<std::string>& extra_record_kinds = {});

}  // namespace altium_registration
