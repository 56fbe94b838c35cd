import QtQuick

// The camera settings panel over the bottom of the video rectangle: the auto
// button, the ruler and the row of items, on black at alpha 0.4. It is laid
// out in the live view's own points and scaled to the rectangle shown. It
// slides in and out with the panel's spring (damping 1.0: no overshoot,
// drawn as an ease-out over the same 0.5 s), and a drag on it goes to the
// live screen, which closes it. Every value comes from `panel`.
Item {
    id: root
    objectName: "settingsPanel"
    property var panel
    property var screen
    // The video rectangle's size in the window.
    property real areaWidth
    property real areaHeight
    readonly property var look: panel.layout

    width: panel.panelWidth
    height: panel.panelHeight
    transformOrigin: Item.TopLeft
    scale: width > 0 ? areaWidth / width : 1
    // How far the bottom edge lies below the video rectangle's, and the
    // alpha, as drawn: they follow the panel through the slide animation.
    property real below: 120
    y: areaHeight - (height - below) * scale
    opacity: 0
    visible: panel.open || slide.running

    Connections {
        target: root.panel
        function onSlide() {
            fade.to = root.panel.alpha
            move.to = root.panel.bottomBelowVideo
            slide.restart()
        }
    }
    ParallelAnimation {
        id: slide
        NumberAnimation { id: fade; target: root; property: "opacity"; duration: 500; easing.type: Easing.OutCubic }
        NumberAnimation { id: move; target: root; property: "below"; duration: 500; easing.type: Easing.OutCubic }
        onFinished: root.panel.slideFinished()
    }

    Rectangle {
        anchors.fill: parent
        color: "black"
        opacity: 0.4
    }
    DragHandler {
        // The ruler keeps its drags: this takes none over from an item. The
        // translation in the panel's own points.
        target: null
        grabPermissions: PointerHandler.CanTakeOverFromHandlersOfDifferentType
                         | PointerHandler.ApprovesTakeOverByAnything
        onCentroidChanged: if (active) root.screen.swipe(2, centroid.position.x - centroid.pressPosition.x,
                                                         centroid.position.y - centroid.pressPosition.y)
    }

    Item {
        objectName: "autoButton"
        readonly property var button: root.panel.autoButton
        visible: !button.hidden
        x: root.look.autoButton.x; y: root.look.autoButton.y
        width: root.look.autoButton.width; height: root.look.autoButton.height
        Image {
            anchors.centerIn: parent
            source: parent.button.icon || ""
            width: parent.button.iconSize || 0; height: width
            sourceSize: Qt.size(width, height)
        }
        TapHandler { onTapped: root.panel.tapAutoButton() }
    }

    Ruler {
        panel: root.panel
        x: root.look.ruler.x; y: root.look.ruler.y
        width: root.look.ruler.width; height: root.look.ruler.height
    }

    Row {
        x: root.look.items.x; y: root.look.items.y
        Repeater {
            model: root.panel.items
            Item {
                objectName: "panelItem" + index
                width: root.look.itemWidth
                height: root.look.itemHeight
                opacity: modelData.opacity
                Image {
                    anchors.horizontalCenter: parent.horizontalCenter
                    y: 10
                    width: 25; height: 25
                    sourceSize: Qt.size(25, 25)
                    source: modelData.icon
                }
                Text {
                    y: parent.height - 5 - height
                    width: parent.width; height: 25
                    text: modelData.title
                    color: modelData.titleColour
                    font.pixelSize: 12
                    horizontalAlignment: Text.AlignHCenter
                    verticalAlignment: Text.AlignVCenter
                }
                TapHandler { onTapped: root.panel.selectItem(index) }
            }
        }
    }
}
