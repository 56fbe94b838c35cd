<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="zh_CN">
<context>
    <name></name>
    <message id="V_AEAF_LOCK">
        <source>V_AEAF_LOCK</source>
        <translation>AE/AF 锁定</translation>
    </message>
    <message id="V_WIFI_GOOD">
        <source>V_WIFI_GOOD</source>
        <translation>网络良好，视频以完整码率传输。</translation>
    </message>
    <message id="V_WIFI_BAD">
        <source>V_WIFI_BAD</source>
        <translation>网络较慢，视频码率已降低。</translation>
    </message>
    <message id="A_OK">
        <source>A_OK</source>
        <translation>确定</translation>
    </message>
    <message id="A_CANCEL">
        <source>A_CANCEL</source>
        <translation>取消</translation>
    </message>
    <message id="M_HOST_ADDRESS">
        <source>M_HOST_ADDRESS</source>
        <translation>电脑地址</translation>
    </message>
    <message id="M_INSTANCE">
        <source>M_INSTANCE</source>
        <translation>实例 (1 到 16)</translation>
    </message>
    <message id="M_CONNECT">
        <source>M_CONNECT</source>
        <translation>连接</translation>
    </message>
</context>
</TS>
