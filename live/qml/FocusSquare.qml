import QtQuick

// The focus square, drawn from the view's state: each phase runs its
// animation over the duration the state gives; the steps after it are the
// view's own.
Rectangle {
    property var look: ({ phase: 0 })
    readonly property int phase: look.phase
    color: "transparent"
    border.width: 1
    border.color: "orange"
    visible: phase !== 0
    width: look.width || 75
    height: width
    x: (look.centerX || 0) - width / 2
    y: (look.centerY || 0) - height / 2
    opacity: look.alpha === undefined ? 1 : look.alpha

    NumberAnimation on scale {
        running: phase === 2
        from: 2.0; to: 1.0
        duration: (look.shrinkDuration || 0.2) * 1000
    }
    NumberAnimation on opacity {
        running: phase === 4
        from: 1.0; to: 0.4
        duration: (look.fadeDuration || 0.5) * 1000
    }
    SequentialAnimation on border.color {
        running: phase === 3
        loops: look.blinkRepeats || 1
        ColorAnimation { to: "white"; duration: (look.blinkDuration || 0.4) * 500 }
        ColorAnimation { to: "orange"; duration: (look.blinkDuration || 0.4) * 500 }
    }
}
