# Qt 6 Quick with Quick Controls; the QML files and the compiled translations
# are built into the library as resources, so the program needs no files
# beside it.
find_package(Qt6 REQUIRED COMPONENTS Core Gui Quick QuickControls2 LinguistTools)
set_target_properties(${target} PROPERTIES AUTOMOC ON)
target_link_libraries(${target} ${scope} Qt6::Core Qt6::Gui Qt6::Quick Qt6::QuickControls2)
