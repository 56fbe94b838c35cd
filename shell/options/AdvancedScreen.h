#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/defaults/UserDefaults.h"
#include "shell/options/OptionsServices.h"

namespace oxelo {

// One row of the advanced screen: a setting shown with a check mark and
// inverted by a tap, or a text setting chosen from a sheet of values.
struct AdvancedRow {
  const char* key;
  std::vector<std::string> values;  // empty for a check-mark row
};

// The rows in screen order: the six switches, then hdr and colorspace.
const std::vector<AdvancedRow>& advancedRows();

// The advanced screen without its display: the capture and diagnostic
// switches, written straight to the settings store. Main queue; the view
// outlives the screen.
class AdvancedScreen {
 public:
  AdvancedScreen(std::shared_ptr<UserDefaults> defaults, OptionsView& view);

  size_t rowCount() const { return advancedRows().size(); }
  // Whether the row shows its check mark (the stored value is true).
  bool isChecked(size_t row) const;
  // A text row's stored text; empty for the others.
  std::string detailText(size_t row) const;

  // A tap: a check-mark row inverts its setting and the table reloads, and
  // the answer is none; a text row answers the values of its sheet.
  std::optional<std::vector<std::string>> tap(size_t row);
  // The choice of value `index` on a text row's sheet. False, with nothing
  // written, for an index beyond the sheet or a row without one.
  bool choose(size_t row, size_t index);

 private:
  std::shared_ptr<UserDefaults> defaults_;
  OptionsView& view_;
};

}  // namespace oxelo
