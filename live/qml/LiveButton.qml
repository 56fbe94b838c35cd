import QtQuick

// One 44 x 44 button of the live screen, drawn from its state: a glyph for
// its image (another when selected), a dark shadow so it reads on any
// picture, and the alpha and enabled state the view gives it.
Item {
    id: button
    property var look: ({})
    property string selectedGlyph: ""
    property color selectedColor: "white"
    property int fontSize: 26
    signal pressed()

    width: 44
    height: 44

    readonly property var glyphs: ({
        "close": "\u2715", "camera_flip": "\u21BB", "mirror_1": "\u21C6",
        "beauty-off": "\u2740", "bolt_outline": "\u03DF", "videocam_outline": "\u25CB",
        "camera_outline": "\u25CE", "gear_outline": "\u2699"
    })
    readonly property string glyph: {
        const image = look.image || ""
        if (look.selected && selectedGlyph !== "") return selectedGlyph
        if (image.startsWith("wifi_")) return "\u25AE".repeat(Math.max(Number(image.slice(5)), 1))
        return glyphs[image] || ""
    }

    visible: !look.hidden
    enabled: look.enabled !== false
    opacity: look.alpha === undefined ? 1.0 : look.alpha

    Text {
        anchors.centerIn: parent
        anchors.horizontalCenterOffset: 0.5
        anchors.verticalCenterOffset: 0.5
        text: button.glyph
        font.pixelSize: button.fontSize
        color: "#404040"
    }
    Text {
        anchors.centerIn: parent
        text: button.glyph
        font.pixelSize: button.fontSize
        color: !button.enabled ? "#a0a0a0" : button.look.selected ? button.selectedColor : "white"
    }
    TapHandler {
        enabled: button.enabled
        gesturePolicy: TapHandler.ReleaseWithinBounds
        onTapped: button.pressed()
    }
}
