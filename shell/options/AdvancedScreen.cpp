#include "shell/options/AdvancedScreen.h"

#include "platform/defaults/SettingsKeys.h"

namespace oxelo {

const std::vector<AdvancedRow>& advancedRows() {
  static const std::vector<AdvancedRow> rows = {
      {keys::showDebugInfo, {}},          {keys::adaptiveBitrate, {}},
      {keys::lowLightBoost, {}},          {keys::smoothAutoFocus, {}},
      {keys::faceDrivenAEAF, {}},         {keys::echoCancellation, {}},
      {keys::hdr, {"Auto", "On", "Off"}}, {keys::colorspace, {"Auto", "BT.601", "BT.709", "None"}},
  };
  return rows;
}

AdvancedScreen::AdvancedScreen(std::shared_ptr<UserDefaults> defaults, OptionsView& view)
    : defaults_(std::move(defaults)), view_(view) {}

bool AdvancedScreen::isChecked(size_t row) const {
  return row < rowCount() && advancedRows()[row].values.empty() &&
         defaults_->boolForKey(advancedRows()[row].key);
}

std::string AdvancedScreen::detailText(size_t row) const {
  if (row >= rowCount() || advancedRows()[row].values.empty()) return {};
  return defaults_->stringForKey(advancedRows()[row].key).value_or("");
}

std::optional<std::vector<std::string>> AdvancedScreen::tap(size_t row) {
  if (row >= rowCount()) return std::nullopt;
  const auto& r = advancedRows()[row];
  if (!r.values.empty()) return r.values;
  defaults_->setBool(r.key, !defaults_->boolForKey(r.key));
  defaults_->synchronize();
  view_.reloadTable();
  return std::nullopt;
}

bool AdvancedScreen::choose(size_t row, size_t index) {
  if (row >= rowCount() || index >= advancedRows()[row].values.size()) return false;
  defaults_->setString(advancedRows()[row].key, advancedRows()[row].values[index]);
  defaults_->synchronize();
  view_.reloadTable();
  return true;
}

}  // namespace oxelo
