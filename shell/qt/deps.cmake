# Qt 6 Quick with Quick Controls; the QML files and the compiled translations
# are built into the library as resources, so the program needs no files
# beside it.
find_package(Qt6 REQUIRED COMPONENTS Core Gui Quick QuickControls2 DBus LinguistTools)
set_target_properties(${target} PROPERTIES AUTOMOC ON)
target_link_libraries(${target} ${scope} Qt6::Core Qt6::Gui Qt6::Quick Qt6::QuickControls2
                      Qt6::DBus)
qt_add_resources(${target} oxelo_qml PREFIX / BASE ${PROJECT_SOURCE_DIR} FILES
  shell/qml/Main.qml shell/qml/MainPage.qml
  shell/qml/Radar.qml shell/qml/FadingPicture.qml shell/qml/IconButton.qml
  shell/qml/ManualConnectSheet.qml shell/qml/HostChooser.qml
  shell/qml/HistorySheet.qml
  shell/qml/images/phone.svg shell/qml/images/phone-found.svg shell/qml/images/phone-icon.svg
  shell/qml/images/computer.svg shell/qml/images/computer-found.svg
  shell/qml/images/reload.svg shell/qml/images/gear.svg shell/qml/images/help.svg
  shell/qml/images/plus.svg shell/qml/images/play.svg
  shell/qml/OptionsPage.qml shell/qml/AdvancedPage.qml shell/qml/HelpPage.qml
  shell/qml/OptionsRow.qml shell/qml/OptionsSheet.qml
  live/qml/LiveScreen.qml live/qml/LiveButton.qml live/qml/FocusSquare.qml live/qml/Notice.qml)
# The settings panel's QML and its icons (white SVGs, tinted when loaded).
qt_add_resources(${target} oxelo_panel_qml PREFIX / BASE ${PROJECT_SOURCE_DIR} FILES
  live/qml/SettingsPanel.qml live/qml/Ruler.qml
  live/qml/icons/exposure-filled.svg live/qml/icons/iso-filled.svg live/qml/icons/iso-alt.svg
  live/qml/icons/whitebalance.svg live/qml/icons/focus-filled.svg live/qml/icons/zoom-in.svg
  live/qml/icons/auto.svg live/qml/icons/edit.svg live/qml/icons/lock.svg
  live/qml/icons/cam-ultra-wide.svg live/qml/icons/cam-wide.svg live/qml/icons/cam-telephoto.svg
  live/qml/icons/cam-frontcam.svg)

# The screen keys' texts by id (qsTrId): the .ts sources are written from the
# live screen's text table at build time, compiled to .qm and built in.
add_executable(oxelo_make_translations ${root}/translations/MakeTranslations.cpp
                                       ${PROJECT_SOURCE_DIR}/live/LiveTexts.cpp
                                       ${PROJECT_SOURCE_DIR}/shell/options/OptionsTexts.cpp)
target_include_directories(oxelo_make_translations PRIVATE ${PROJECT_SOURCE_DIR})
set(ts_dir ${CMAKE_BINARY_DIR}/translations)
set(qm_files ${ts_dir}/oxelo_en.qm ${ts_dir}/oxelo_zh_CN.qm)
add_custom_command(OUTPUT ${qm_files}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${ts_dir}
  COMMAND oxelo_make_translations ${ts_dir}
  COMMAND Qt6::lrelease -silent ${ts_dir}/oxelo_en.ts -qm ${ts_dir}/oxelo_en.qm
  COMMAND Qt6::lrelease -silent ${ts_dir}/oxelo_zh_CN.ts -qm ${ts_dir}/oxelo_zh_CN.qm
  DEPENDS oxelo_make_translations VERBATIM)
set_source_files_properties(${qm_files} PROPERTIES GENERATED TRUE)
qt_add_resources(${target} oxelo_translations PREFIX /i18n BASE ${ts_dir} FILES ${qm_files})
