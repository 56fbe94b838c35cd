# Qt 6 Quick with Quick Controls; the QML files and the compiled translations
# are built into the library as resources, so the program needs no files
# beside it.
find_package(Qt6 REQUIRED COMPONENTS Core Gui Quick QuickControls2 LinguistTools)
set_target_properties(${target} PROPERTIES AUTOMOC ON)
target_link_libraries(${target} ${scope} Qt6::Core Qt6::Gui Qt6::Quick Qt6::QuickControls2)
qt_add_resources(${target} oxelo_qml PREFIX / BASE ${PROJECT_SOURCE_DIR} FILES
  shell/qml/Main.qml shell/qml/MainPage.qml live/qml/LiveScreen.qml live/qml/LiveButton.qml)
# The screen keys' texts by id (qsTrId): English, and Chinese where the
# system speaks it; .ts compiled to .qm at build time.
qt_add_translations(${target}
  TS_FILES ${PROJECT_SOURCE_DIR}/shell/translations/oxelo_en.ts
           ${PROJECT_SOURCE_DIR}/shell/translations/oxelo_zh_CN.ts
  RESOURCE_PREFIX /i18n LUPDATE_TARGET oxelo_lupdate LRELEASE_TARGET oxelo_lrelease)
