import QtQuick

// The ruler of the settings panel: a horizontal scale that moves under an
// indicator fixed in its middle. The content position is the ruler's content
// offset; the margins let the first and the last tick reach the middle. Only
// the ticks in view are drawn, from a pool of cells that take the ticks the
// panel hands out as the scale moves. The drag and the fling are Qt's own; a
// fling is led onto the tick nearest to where Qt's deceleration would rest.
Item {
    id: ruler
    property var panel
    readonly property var look: panel.ruler
    opacity: look.alpha
    clip: true

    Flickable {
        id: scale
        objectName: "rulerScale"
        anchors.fill: parent
        interactive: ruler.look.enabled
        flickableDirection: Flickable.HorizontalFlick
        boundsBehavior: Flickable.StopAtBounds
        leftMargin: ruler.look.inset
        rightMargin: ruler.look.inset
        contentWidth: ruler.look.contentLength
        contentHeight: height
        property bool snapping: false

        onContentXChanged: ruler.panel.rulerScrolled(contentX)
        onDraggingChanged: {
            if (dragging) {
                snapping = false
                snap.stop()
                move.stop()
                ruler.panel.rulerDragStarted()
            } else {
                ruler.panel.rulerDragEnded()
            }
        }
        onFlickStarted: {
            const rest = ruler.panel.rulerFling(horizontalVelocity, flickDeceleration)
            snapping = true
            cancelFlick()
            snap.to = rest.to
            snap.duration = rest.duration
            snap.restart()
        }
        onMovementEnded: if (!snapping) ruler.panel.rulerMovementEnded()

        Repeater {
            model: ruler.panel.tickSlots
            Item {
                readonly property var tick: ruler.panel.ticks[index]
                visible: tick !== undefined
                x: tick ? tick.cellX : 0
                y: tick ? tick.cellY : 0
                width: ruler.look.cellWidth
                height: ruler.look.cellHeight
                Rectangle {
                    x: tick ? tick.x : 0; y: tick ? tick.y : 0
                    width: tick ? tick.width : 0; height: tick ? tick.height : 0
                    radius: Math.min(width, height) / 2
                    color: ruler.look.scaleColour
                }
                Text {
                    visible: !!tick && tick.text !== ""
                    text: tick ? tick.text : ""
                    color: ruler.look.numberColour
                    font.pixelSize: ruler.look.numberFontSize
                    readonly property point at: {
                        ruler.look
                        return ruler.panel.numberPosition(implicitWidth, implicitHeight)
                    }
                    x: at.x; y: at.y
                }
            }
        }
    }

    // The same slowing down as Qt's fling, over the distance to the tick.
    NumberAnimation {
        id: snap
        target: scale; property: "contentX"
        easing.type: Easing.OutQuad
        onFinished: {
            scale.snapping = false
            ruler.panel.rulerMovementEnded()
        }
    }
    // A value set from outside.
    NumberAnimation {
        id: move
        target: scale; property: "contentX"
        duration: 250
        easing.type: Easing.InOutQuad
    }
    Connections {
        target: ruler.panel
        function onScrollTo(offset, animated) {
            if (scale.dragging) return
            snap.stop()
            scale.snapping = false
            if (animated) {
                move.to = offset
                move.restart()
            } else {
                move.stop()
                scale.contentX = offset
            }
        }
    }

    Rectangle {
        objectName: "rulerIndicator"
        x: ruler.look.indicator.x; y: ruler.look.indicator.y
        width: ruler.look.indicator.width; height: ruler.look.indicator.height
        radius: width / 2
        color: ruler.look.pointColour
    }
}
