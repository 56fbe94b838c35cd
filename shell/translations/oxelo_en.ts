<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name></name>
    <message id="V_AEAF_LOCK">
        <source>V_AEAF_LOCK</source>
        <translation>AE/AF LOCK</translation>
    </message>
    <message id="V_WIFI_GOOD">
        <source>V_WIFI_GOOD</source>
        <translation>The network is good: the stream runs at the full rate.</translation>
    </message>
    <message id="V_WIFI_BAD">
        <source>V_WIFI_BAD</source>
        <translation>The network is slow: the stream has lowered its rate.</translation>
    </message>
    <message id="A_OK">
        <source>A_OK</source>
        <translation>OK</translation>
    </message>
    <message id="A_CANCEL">
        <source>A_CANCEL</source>
        <translation>Cancel</translation>
    </message>
    <message id="M_HOST_ADDRESS">
        <source>M_HOST_ADDRESS</source>
        <translation>Host address</translation>
    </message>
    <message id="M_INSTANCE">
        <source>M_INSTANCE</source>
        <translation>Instance (1 to 16)</translation>
    </message>
    <message id="M_CONNECT">
        <source>M_CONNECT</source>
        <translation>Connect</translation>
    </message>
</context>
</TS>
