import QtQuick
import QtQuick.Controls
import "../../live/qml"

// The one window: the main page, and the live screen over it while a
// session runs.
ApplicationWindow {
    id: window
    width: 360
    height: 720
    visible: true
    color: "black"
    title: "Oxelo"
    onWidthChanged: app.setViewSize(width, height)
    onHeightChanged: app.setViewSize(width, height)
    Component.onCompleted: app.setViewSize(width, height)

    MainPage {
        anchors.fill: parent
        visible: !app.liveScreen
    }
    Loader {
        anchors.fill: parent
        focus: true  // the live screen takes the keys (volume: a snapshot)
        active: !!app.liveScreen
        sourceComponent: LiveScreen { screen: app.liveScreen }
    }
}
