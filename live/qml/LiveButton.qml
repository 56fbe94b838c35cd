import QtQuick

// One 44 x 44 button of the live screen: a glyph, another one when selected,
// and a soft dark shadow so it reads on any picture.
Item {
    id: button
    property string glyph
    property string selectedGlyph: glyph
    property color selectedColor: "white"
    property bool selected: false
    property int fontSize: 26
    signal pressed()

    width: 44
    height: 44
    opacity: enabled ? 1.0 : 0.4

    Text {
        anchors.centerIn: parent
        anchors.horizontalCenterOffset: 0.5
        anchors.verticalCenterOffset: 0.5
        text: button.selected ? button.selectedGlyph : button.glyph
        font.pixelSize: button.fontSize
        color: "#404040"
    }
    Text {
        anchors.centerIn: parent
        text: button.selected ? button.selectedGlyph : button.glyph
        font.pixelSize: button.fontSize
        color: button.selected ? button.selectedColor : "white"
    }
    TapHandler {
        onTapped: button.pressed()
    }
}
