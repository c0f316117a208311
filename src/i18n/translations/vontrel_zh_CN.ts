<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="zh_CN">
<context>
    <name>AIProviderPage</name>
    <message>
        <source>AI Provider</source>
        <translation>AI 服务商</translation>
    </message>
    <message>
        <source>Base URL:</source>
        <translation>接口地址：</translation>
    </message>
    <message>
        <source>API Key:</source>
        <translation>API 密钥：</translation>
    </message>
    <message>
        <source>Model:</source>
        <translation>模型：</translation>
    </message>
    <message>
        <source>Test Connection</source>
        <translation>测试连接</translation>
    </message>
    <message>
        <source>Please enter an API key first.</source>
        <translation>请先输入 API 密钥。</translation>
    </message>
    <message>
        <source>Test Connection Failed</source>
        <translation>连接测试失败</translation>
    </message>
    <message>
        <source>Failed to configure client. Please check your settings.</source>
        <translation>无法配置客户端，请检查设置。</translation>
    </message>
    <message>
        <source>Connection successful! API is working.</source>
        <translation>连接成功！API 工作正常。</translation>
    </message>
    <message>
        <source>Failed to connect:
%1</source>
        <translation>连接失败：
%1</translation>
    </message>
</context>
<context>
    <name>AboutPage</name>
    <message>
        <source>About</source>
        <translation>关于</translation>
    </message>
    <message>
        <source>Version %1</source>
        <translation>版本 %1</translation>
    </message>
    <message>
        <source>A smart AI assistant for macOS and Windows.
Capture screenshots, recognize text, and translate instantly.</source>
        <translation>适用于 macOS 和 Windows 的智能 AI 助手。
截取屏幕、识别文字、即时翻译。</translation>
    </message>
    <message>
        <source>Website: &lt;a href=&quot;%1&quot;&gt;%1&lt;/a&gt;</source>
        <translation>网站：&lt;a href=&quot;%1&quot;&gt;%1&lt;/a&gt;</translation>
    </message>
    <message>
        <source>Check for Updates</source>
        <translation>检查更新</translation>
    </message>
    <message>
        <source>Checking...</source>
        <translation>正在检查…</translation>
    </message>
</context>
<context>
    <name>ActionService</name>
    <message>
        <source>LLM client not available</source>
        <translation>大模型客户端不可用</translation>
    </message>
    <message>
        <source>LLM client not configured</source>
        <translation>大模型客户端未配置</translation>
    </message>
    <message>
        <source>Input text is empty</source>
        <translation>输入文本为空</translation>
    </message>
    <message>
        <source>Unknown action type</source>
        <translation>未知的操作类型</translation>
    </message>
    <message>
        <source>Empty response from LLM</source>
        <translation>大模型返回了空响应</translation>
    </message>
</context>
<context>
    <name>CaptureOverlay</name>
    <message>
        <source>Drag to select area, ESC to cancel</source>
        <translation>拖动以选择区域，按 ESC 取消</translation>
    </message>
</context>
<context>
    <name>ConfigManager</name>
    <message>
        <source>These settings in %1 have a value Vontrel cannot use and were left empty: %2. The file keeps them as they are until you set them in Preferences.</source>
        <translation>%1 中的这些设置的值 Vontrel 无法使用，已留空：%2。在您于偏好设置中重新设置之前，文件会原样保留它们。</translation>
    </message>
    <message>
        <source>Vontrel Settings</source>
        <translation>Vontrel 设置</translation>
    </message>
    <message>
        <source>Vontrel could not read its settings file and started with default settings. The file was kept as:
%1</source>
        <translation>Vontrel 无法读取其设置文件，已使用默认设置启动。原文件已保留为：
%1</translation>
    </message>
    <message>
        <source>Vontrel could not save your settings to %1 (%2). Your changes stay in effect until Vontrel quits.</source>
        <translation>Vontrel 无法将您的设置保存到 %1（%2）。在 Vontrel 退出之前，您的更改仍然有效。</translation>
    </message>
    <message>
        <source>the unreadable file could not be kept aside</source>
        <translation>无法另存无法读取的文件</translation>
    </message>
    <message>
        <source>Vontrel cannot use %1 for its settings (%2), so it started with default settings and will not save any.</source>
        <translation>Vontrel 无法使用 %1 保存设置（%2），因此已使用默认设置启动，并且不会保存任何设置。</translation>
    </message>
</context>
<context>
    <name>GeneralPage</name>
    <message>
        <source>General</source>
        <translation>通用</translation>
    </message>
    <message>
        <source>Start at login</source>
        <translation>登录时启动</translation>
    </message>
    <message>
        <source>Automatically start Vontrel when you log in to your computer</source>
        <translation>登录电脑时自动启动 Vontrel</translation>
    </message>
    <message>
        <source>Failed to update system auto-start setting</source>
        <translation>无法更新系统自启动设置</translation>
    </message>
    <message>
        <source>Pin overlay window by default</source>
        <translation>默认固定浮窗</translation>
    </message>
    <message>
        <source>Keep the overlay window visible after translation completes</source>
        <translation>翻译完成后保持浮窗显示</translation>
    </message>
    <message>
        <source>App language</source>
        <translation>界面语言</translation>
    </message>
    <message>
        <source>Change the language used for Vontrel&apos;s user interface</source>
        <translation>更改 Vontrel 界面所用的语言</translation>
    </message>
    <message>
        <source>Follow System</source>
        <translation>跟随系统</translation>
    </message>
    <message>
        <source>English</source>
        <translation>English</translation>
    </message>
    <message>
        <source>Chinese</source>
        <translation>简体中文</translation>
    </message>
</context>
<context>
    <name>HotkeysPage</name>
    <message>
        <source>Hotkeys</source>
        <translation>快捷键</translation>
    </message>
    <message>
        <source>Capture Screen</source>
        <translation>截屏识字</translation>
    </message>
    <message>
        <source>Capture a region of the screen for OCR and translation</source>
        <translation>截取屏幕区域，识别其中文字并翻译</translation>
    </message>
    <message>
        <source>Process Clipboard</source>
        <translation>处理剪贴板</translation>
    </message>
    <message>
        <source>Process text from clipboard for translation</source>
        <translation>翻译选中文本或剪贴板中的文本</translation>
    </message>
    <message>
        <source>Restore Defaults</source>
        <translation>恢复默认</translation>
    </message>
    <message>
        <source>Clipboard hotkey was cleared due to conflict. Please set a different one.</source>
        <translation>剪贴板快捷键因冲突已被清除，请设置其他组合。</translation>
    </message>
    <message>
        <source>Capture hotkey was cleared due to conflict. Please set a different one.</source>
        <translation>截屏快捷键因冲突已被清除，请设置其他组合。</translation>
    </message>
    <message>
        <source>At least one hotkey must be set</source>
        <translation>至少需要设置一个快捷键</translation>
    </message>
    <message>
        <source>Invalid capture hotkey. Must include modifier (Ctrl/Cmd, Alt, or Shift)</source>
        <translation>截屏快捷键无效，必须包含修饰键（Ctrl/Cmd、Alt 或 Shift）</translation>
    </message>
    <message>
        <source>Invalid clipboard hotkey. Must include modifier (Ctrl/Cmd, Alt, or Shift)</source>
        <translation>剪贴板快捷键无效，必须包含修饰键（Ctrl/Cmd、Alt 或 Shift）</translation>
    </message>
    <message>
        <source>Capture hotkey conflicts with a system shortcut</source>
        <translation>截屏快捷键与系统快捷键冲突</translation>
    </message>
    <message>
        <source>Clipboard hotkey conflicts with a system shortcut</source>
        <translation>剪贴板快捷键与系统快捷键冲突</translation>
    </message>
    <message>
        <source>The capture and clipboard hotkeys are both %1. Please set a different one.</source>
        <translation>截图快捷键和剪贴板快捷键都是 %1。请为其中一个设置不同的快捷键。</translation>
    </message>
</context>
<context>
    <name>OpenAIClient</name>
    <message>
        <source>API not configured. Please set API URL and key in config.</source>
        <translation>API 未配置，请在配置中设置 API 地址和密钥。</translation>
    </message>
    <message>
        <source>Network error: %1</source>
        <translation>网络错误：%1</translation>
    </message>
    <message>
        <source>API error: %1</source>
        <translation>API 错误：%1</translation>
    </message>
    <message>
        <source>Request timed out</source>
        <translation>请求超时</translation>
    </message>
    <message>
        <source>Failed to parse response: %1</source>
        <translation>无法解析响应：%1</translation>
    </message>
    <message>
        <source>No response from API</source>
        <translation>API 无响应</translation>
    </message>
    <message>
        <source>The API key contains a line break or another control character. Paste the key again.</source>
        <translation>API 密钥中含有换行符或其他控制字符。请重新粘贴密钥。</translation>
    </message>
    <message>
        <source>The API URL contains a line break or another control character.</source>
        <translation>API 地址中含有换行符或其他控制字符。</translation>
    </message>
    <message>
        <source>The API URL is not an http or https address.</source>
        <translation>API 地址不是 http 或 https 地址。</translation>
    </message>
    <message>
        <source>The provider redirected the request to %1; Vontrel does not send the API key to another server. Set the API URL to the address that answers.</source>
        <translation>服务商将请求重定向到 %1；Vontrel 不会把 API 密钥发送给其他服务器。请把 API 地址设为实际应答的地址。</translation>
    </message>
    <message>
        <source>API error %1: %2</source>
        <translation>API 错误 %1：%2</translation>
    </message>
    <message>
        <source>Network error: %1 (HTTP %2)</source>
        <translation>网络错误：%1（HTTP %2）</translation>
    </message>
    <message>
        <source>The provider sent an empty answer.</source>
        <translation>服务商返回了空的应答。</translation>
    </message>
    <message>
        <source>The provider&apos;s event stream carried no data.</source>
        <translation>服务商的事件流中没有任何数据。</translation>
    </message>
    <message>
        <source>The provider answered with %1, not an event stream.</source>
        <translation>服务商返回的是 %1，而不是事件流。</translation>
    </message>
    <message>
        <source>text of no stated type</source>
        <translation>未注明类型的文本</translation>
    </message>
    <message>
        <source>The provider sent more than %1 MiB; the answer was stopped there.</source>
        <translation>服务商发送的数据超过 %1 MiB，应答已在此处停止。</translation>
    </message>
    <message>
        <source>The connection was closed in the middle of the answer; the answer is incomplete.</source>
        <translation>连接在应答中途被关闭，应答不完整。</translation>
    </message>
    <message>
        <source>The provider did not answer within %1 seconds.</source>
        <translation>服务商在 %1 秒内没有应答。</translation>
    </message>
    <message>
        <source>The provider sent nothing for %1 seconds; the answer is incomplete.</source>
        <translation>服务商已 %1 秒没有发送任何数据，应答不完整。</translation>
    </message>
    <message>
        <source>The answer took longer than %1 seconds and was stopped.</source>
        <translation>应答耗时超过 %1 秒，已被停止。</translation>
    </message>
    <message>
        <source>The provider redirected the request (HTTP %1), and the redirect could not be followed to an answer; check the API address.</source>
        <translation>服务商重定向了请求（HTTP %1），但无法跟随重定向得到回答；请检查 API 地址。</translation>
    </message>
    <message>
        <source>The API key is sent unencrypted to %1, which is not on this machine or your local network. Use an https address unless you trust every network in between.</source>
        <translation>API 密钥将以未加密的方式发送到 %1，它既不在本机上，也不在您的局域网中。除非您信任途经的每一个网络，否则请使用 https 地址。</translation>
    </message>
</context>
<context>
    <name>PermissionGuideDialog</name>
    <message>
        <source>Vontrel Permissions</source>
        <translation>Vontrel 权限</translation>
    </message>
    <message>
        <source>Open System Settings</source>
        <translation>打开系统设置</translation>
    </message>
    <message>
        <source>I&apos;ve enabled it, recheck</source>
        <translation>我已开启，重新检查</translation>
    </message>
    <message>
        <source>Later</source>
        <translation>稍后</translation>
    </message>
    <message>
        <source>Screen Recording permission required</source>
        <translation>需要屏幕录制权限</translation>
    </message>
    <message>
        <source>&lt;p&gt;Vontrel needs access to your screen to capture screenshots and run OCR.&lt;/p&gt;&lt;p&gt;&lt;b&gt;Steps&lt;/b&gt;&lt;/p&gt;&lt;ol&gt;&lt;li&gt;Open System Settings → Privacy &amp;amp; Security&lt;/li&gt;&lt;li&gt;Go to Screen Recording&lt;/li&gt;&lt;li&gt;Enable Vontrel&lt;/li&gt;&lt;li&gt;If macOS asks you to quit and reopen Vontrel, please do so&lt;/li&gt;&lt;/ol&gt;&lt;p&gt;If Vontrel is not listed, trigger the screenshot hotkey once and check again.&lt;/p&gt;</source>
        <translation>&lt;p&gt;Vontrel 需要访问你的屏幕，才能截图并识别文字。&lt;/p&gt;&lt;p&gt;&lt;b&gt;步骤&lt;/b&gt;&lt;/p&gt;&lt;ol&gt;&lt;li&gt;打开“系统设置”→“隐私与安全性”&lt;/li&gt;&lt;li&gt;进入“屏幕录制”&lt;/li&gt;&lt;li&gt;开启 Vontrel&lt;/li&gt;&lt;li&gt;如果 macOS 要求退出并重新打开 Vontrel，请照做&lt;/li&gt;&lt;/ol&gt;&lt;p&gt;如果列表中没有 Vontrel，请先按一次截图快捷键，然后再检查。&lt;/p&gt;</translation>
    </message>
    <message>
        <source>Screen capture needs an X11 session</source>
        <translation>截屏需要 X11 会话</translation>
    </message>
    <message>
        <source>&lt;p&gt;Vontrel captures the screen through the X11 display server, and this desktop session offers none (for example a Wayland session without X11).&lt;/p&gt;&lt;p&gt;&lt;b&gt;Steps&lt;/b&gt;&lt;/p&gt;&lt;ol&gt;&lt;li&gt;Log out&lt;/li&gt;&lt;li&gt;At the login screen, choose a session that runs on X11 (often named &quot;on Xorg&quot; or &quot;(X11)&quot;)&lt;/li&gt;&lt;li&gt;Log in and start Vontrel again&lt;/li&gt;&lt;/ol&gt;&lt;p&gt;Translating typed or copied text works in any session.&lt;/p&gt;</source>
        <translation>&lt;p&gt;Vontrel 通过 X11 显示服务器截取屏幕，而当前桌面会话不提供 X11（例如不带 X11 的 Wayland 会话）。&lt;/p&gt;&lt;p&gt;&lt;b&gt;步骤&lt;/b&gt;&lt;/p&gt;&lt;ol&gt;&lt;li&gt;注销&lt;/li&gt;&lt;li&gt;在登录界面选择运行于 X11 的会话（通常名为“on Xorg”或“(X11)”）&lt;/li&gt;&lt;li&gt;登录后重新启动 Vontrel&lt;/li&gt;&lt;/ol&gt;&lt;p&gt;翻译输入或复制的文字在任何会话中都可使用。&lt;/p&gt;</translation>
    </message>
    <message>
        <source>Accessibility permission required</source>
        <translation>需要辅助功能权限</translation>
    </message>
    <message>
        <source>&lt;p&gt;Vontrel simulates a ⌘C to read selected text from the current app, and restores your clipboard. macOS requires Accessibility permission to send such input events.&lt;/p&gt;&lt;p&gt;&lt;b&gt;Steps&lt;/b&gt;&lt;/p&gt;&lt;ol&gt;&lt;li&gt;Open System Settings → Privacy &amp;amp; Security&lt;/li&gt;&lt;li&gt;Go to Accessibility&lt;/li&gt;&lt;li&gt;Enable Vontrel&lt;/li&gt;&lt;li&gt;Then retry the hotkey&lt;/li&gt;&lt;/ol&gt;&lt;p&gt;On newer macOS versions you may also see a system prompt about allowing paste from other apps. This is expected.&lt;/p&gt;</source>
        <translation>&lt;p&gt;Vontrel 会模拟按下 ⌘C 来读取当前应用中选中的文字，并随后恢复你的剪贴板。macOS 要求授予辅助功能权限才能发送此类输入事件。&lt;/p&gt;&lt;p&gt;&lt;b&gt;步骤&lt;/b&gt;&lt;/p&gt;&lt;ol&gt;&lt;li&gt;打开“系统设置”→“隐私与安全性”&lt;/li&gt;&lt;li&gt;进入“辅助功能”&lt;/li&gt;&lt;li&gt;开启 Vontrel&lt;/li&gt;&lt;li&gt;然后重新按下快捷键&lt;/li&gt;&lt;/ol&gt;&lt;p&gt;在较新的 macOS 版本上，你可能还会看到是否允许从其他应用粘贴的系统提示，这是正常现象。&lt;/p&gt;</translation>
    </message>
    <message>
        <source>Reading the selection needs an X11 session</source>
        <translation>读取选中文字需要 X11 会话</translation>
    </message>
    <message>
        <source>&lt;p&gt;Vontrel sends a Ctrl+C to the current application to read its selected text, and restores your clipboard. Sending such input needs the X11 display server, and this desktop session offers none (for example a Wayland session without X11).&lt;/p&gt;&lt;p&gt;&lt;b&gt;Steps&lt;/b&gt;&lt;/p&gt;&lt;ol&gt;&lt;li&gt;Log out&lt;/li&gt;&lt;li&gt;At the login screen, choose a session that runs on X11 (often named &quot;on Xorg&quot; or &quot;(X11)&quot;)&lt;/li&gt;&lt;li&gt;Log in and start Vontrel again&lt;/li&gt;&lt;/ol&gt;&lt;p&gt;Until then, copy the text yourself and use the clipboard text hotkey&apos;s window.&lt;/p&gt;</source>
        <translation>&lt;p&gt;Vontrel 会向当前应用发送 Ctrl+C 来读取选中的文字，并随后恢复你的剪贴板。发送此类输入需要 X11 显示服务器，而当前桌面会话不提供 X11（例如不带 X11 的 Wayland 会话）。&lt;/p&gt;&lt;p&gt;&lt;b&gt;步骤&lt;/b&gt;&lt;/p&gt;&lt;ol&gt;&lt;li&gt;注销&lt;/li&gt;&lt;li&gt;在登录界面选择运行于 X11 的会话（通常名为“on Xorg”或“(X11)”）&lt;/li&gt;&lt;li&gt;登录后重新启动 Vontrel&lt;/li&gt;&lt;/ol&gt;&lt;p&gt;在此之前，请自行复制文字，并使用剪贴板文本快捷键打开的窗口。&lt;/p&gt;</translation>
    </message>
</context>
<context>
    <name>Permissions</name>
    <message>
        <source>This desktop session has no X11 display server (for example a Wayland session). Global hotkeys, screen capture and reading the selected text need X11; log in to an X11 session to use them. Translating typed or copied text works as usual.</source>
        <translation>当前桌面会话没有 X11 显示服务器（例如 Wayland 会话）。全局快捷键、截屏和读取选中文字都需要 X11，请登录 X11 会话后使用。翻译输入或复制的文字不受影响。</translation>
    </message>
    <message>
        <source>Not supported on this system</source>
        <translation>此系统不支持</translation>
    </message>
    <message>
        <source>Vontrel has no support for this system&apos;s desktop: global hotkeys, screen capture and reading the selected text are unavailable. Translating typed or copied text works.</source>
        <translation>Vontrel 不支持此系统的桌面：全局快捷键、截屏和读取选中文字均不可用。翻译输入或复制的文字不受影响。</translation>
    </message>
</context>
<context>
    <name>PortalHotkeyBackend</name>
    <message>
        <source>The %1 hotkey uses a key the desktop cannot bind.</source>
        <translation>%1 快捷键使用了桌面无法绑定的按键。</translation>
    </message>
    <message>
        <source>Capture a screen region and translate it</source>
        <translation>截取屏幕区域并翻译</translation>
    </message>
    <message>
        <source>Translate the selected or copied text</source>
        <translation>翻译选中或复制的文字</translation>
    </message>
    <message>
        <source>The desktop&apos;s shortcuts portal accepted the global hotkeys but bound none of them, so they are off.</source>
        <translation>桌面的快捷键门户接受了全局热键，但一个也没有绑定，因此热键已关闭。</translation>
    </message>
    <message>
        <source>The desktop did not grant the global hotkeys. Change the hotkeys in Preferences to be asked again.</source>
        <translation>桌面未授予全局热键。在偏好设置中更改热键即可再次询问。</translation>
    </message>
    <message>
        <source>This desktop&apos;s portal has no %1 interface, so global hotkeys are off.</source>
        <translation>此桌面的门户没有 %1 接口，因此全局热键已关闭。</translation>
    </message>
</context>
<context>
    <name>PreferencesWindow</name>
    <message>
        <source>General</source>
        <translation>通用</translation>
    </message>
    <message>
        <source>General settings</source>
        <translation>通用设置</translation>
    </message>
    <message>
        <source>Hotkeys</source>
        <translation>快捷键</translation>
    </message>
    <message>
        <source>Keyboard shortcuts</source>
        <translation>键盘快捷键</translation>
    </message>
    <message>
        <source>AI Provider</source>
        <translation>AI 服务商</translation>
    </message>
    <message>
        <source>API provider settings</source>
        <translation>API 服务商设置</translation>
    </message>
    <message>
        <source>AI Actions</source>
        <translation>AI 操作</translation>
    </message>
    <message>
        <source>AI action settings</source>
        <translation>AI 操作设置</translation>
    </message>
    <message>
        <source>About</source>
        <translation>关于</translation>
    </message>
    <message>
        <source>Application information</source>
        <translation>应用信息</translation>
    </message>
    <message>
        <source>Preferences</source>
        <translation>偏好设置</translation>
    </message>
</context>
<context>
    <name>QObject</name>
    <message>
        <source>Configuration Required</source>
        <translation>需要配置</translation>
    </message>
    <message>
        <source>Please configure your API key in:
%1

Then restart the application.</source>
        <translation>请在以下文件中配置 API 密钥：
%1

然后重新启动应用。</translation>
    </message>
    <message>
        <source>Limited Desktop Session</source>
        <translation>桌面会话功能受限</translation>
    </message>
    <message>
        <source>Please grant accessibility permissions to Vontrel in:
System Preferences &gt; Security &amp; Privacy &gt; Privacy &gt; Accessibility</source>
        <translation>请在以下位置为 Vontrel 授予辅助功能权限：
系统偏好设置 &gt; 安全性与隐私 &gt; 隐私 &gt; 辅助功能</translation>
    </message>
    <message>
        <source>Hotkey Registration Failed</source>
        <translation>快捷键注册失败</translation>
    </message>
    <message>
        <source>Failed to register global hotkeys.

%1</source>
        <translation>无法注册全局快捷键。

%1</translation>
    </message>
    <message>
        <source>Global hotkeys are not active. See debug log:
%1</source>
        <translation>全局快捷键未生效。请查看调试日志：
%1</translation>
    </message>
    <message>
        <source>Vontrel - %1 Text Screenshot, %2 Selected/Clipboard Text</source>
        <translation>Vontrel - %1 截图识字，%2 选中/剪贴板文本</translation>
    </message>
    <message>
        <source>AI Action (Text Screenshot)</source>
        <translation>AI 操作（截图识字）</translation>
    </message>
    <message>
        <source>AI Action (Selected/Clipboard Text)</source>
        <translation>AI 操作（选中/剪贴板文本）</translation>
    </message>
    <message>
        <source>Check for Updates...</source>
        <translation>检查更新…</translation>
    </message>
    <message>
        <source>Checking...</source>
        <translation>正在检查…</translation>
    </message>
    <message>
        <source>Preferences...</source>
        <translation>偏好设置…</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>退出</translation>
    </message>
    <message>
        <source>Failed to register hotkeys after editing.
%1</source>
        <translation>编辑后无法注册快捷键。
%1</translation>
    </message>
    <message>
        <source>Failed to register the new hotkeys. Reverted to the previous working hotkeys.</source>
        <translation>无法注册新的快捷键，已恢复为之前可用的快捷键。</translation>
    </message>
    <message>
        <source>Vontrel Error</source>
        <translation>Vontrel 错误</translation>
    </message>
    <message>
        <source>Failed to register hotkeys after editing.
%1
Reverted to the previous working hotkeys.</source>
        <translation>编辑后无法注册快捷键。
%1
已恢复为之前可用的快捷键。</translation>
    </message>
    <message>
        <source>Global hotkeys are not active.</source>
        <translation>全局快捷键未生效。</translation>
    </message>
    <message>
        <source>Global Hotkeys Unavailable</source>
        <translation>全局快捷键不可用</translation>
    </message>
    <message>
        <source>GNOME: Settings &gt; Keyboard &gt; View and Customize Shortcuts &gt; Custom Shortcuts, then + with the command.</source>
        <translation>GNOME：设置 &gt; 键盘 &gt; 查看及自定义快捷键 &gt; 自定义快捷键，然后点 + 并填入命令。</translation>
    </message>
    <message>
        <source>KDE Plasma: System Settings &gt; Shortcuts &gt; Add New &gt; Command or Script.</source>
        <translation>KDE Plasma：系统设置 &gt; 快捷键 &gt; 新增 &gt; 命令或脚本。</translation>
    </message>
    <message>
        <source>sway: a line such as &quot;bindsym $mod+Shift+1 exec vontrel --capture&quot; in ~/.config/sway/config.</source>
        <translation>sway：在 ~/.config/sway/config 中加入一行，例如 &quot;bindsym $mod+Shift+1 exec vontrel --capture&quot;。</translation>
    </message>
    <message>
        <source>Bind these commands to keys in the desktop&apos;s keyboard settings instead:
  vontrel --capture  (text screenshot)
  vontrel --selection  (selected or clipboard text)
%1</source>
        <translation>请改在桌面的键盘设置中为以下命令绑定按键：
  vontrel --capture  （文字截图）
  vontrel --selection  （选中或剪贴板文字）
%1</translation>
    </message>
    <message>
        <source>Hotkeys off: %1</source>
        <translation>热键已关闭：%1</translation>
    </message>
    <message>
        <source>Vontrel - hotkeys off</source>
        <translation>Vontrel - 热键已关闭</translation>
    </message>
    <message>
        <source>Screenshot Pending</source>
        <translation>截图等待中</translation>
    </message>
    <message>
        <source>The capture asked for earlier is still waiting for the desktop&apos;s screenshot. If the desktop asks whether to allow screenshots, answer it: the capture goes on as soon as the screenshot arrives.</source>
        <translation>之前请求的截图仍在等待桌面提供。如果桌面询问是否允许截图，请作答：截图一到，截取就会继续。</translation>
    </message>
    <message>
        <source>Global hotkeys are off: %1</source>
        <translation>全局热键已关闭：%1</translation>
    </message>
    <message>
        <source>This desktop shows no tray icon: start Vontrel again, or open it from the applications menu, to reach its Preferences.</source>
        <translation>此桌面不显示托盘图标：再次启动 Vontrel，或从应用程序菜单打开它，即可进入偏好设置。</translation>
    </message>
    <message>
        <source>Screenshots Refused</source>
        <translation>截图被拒绝</translation>
    </message>
    <message>
        <source>The desktop refuses Vontrel&apos;s screenshots because of an earlier Deny that it keeps. Should it ask again at the next capture?</source>
        <translation>由于桌面记住了之前的“拒绝”，它拒绝为 Vontrel 截图。要让它在下次截取时重新询问吗？</translation>
    </message>
    <message>
        <source>Ask Again</source>
        <translation>重新询问</translation>
    </message>
    <message>
        <source>Not Now</source>
        <translation>暂不</translation>
    </message>
    <message>
        <source>Capture again: the desktop will ask whether Vontrel may take screenshots.</source>
        <translation>请再次截取：桌面会询问是否允许 Vontrel 截图。</translation>
    </message>
    <message>
        <source>The desktop&apos;s stored answer could not be removed; see the capture&apos;s message for the command that does it.</source>
        <translation>无法删除桌面保存的回答；请参阅截取时的消息，其中有可完成此操作的命令。</translation>
    </message>
</context>
<context>
    <name>ResultCornerButtons</name>
    <message>
        <source>Copy</source>
        <translation>复制</translation>
    </message>
    <message>
        <source>Stop</source>
        <translation>停止</translation>
    </message>
    <message>
        <source>Retry</source>
        <translation>重试</translation>
    </message>
    <message>
        <source>Copied</source>
        <translation>已复制</translation>
    </message>
</context>
<context>
    <name>ResultText</name>
    <message>
        <source>Translating...</source>
        <translation>正在翻译…</translation>
    </message>
</context>
<context>
    <name>ResultTitleRow</name>
    <message>
        <source>Vontrel</source>
        <translation>Vontrel</translation>
    </message>
    <message>
        <source>Close</source>
        <translation>关闭</translation>
    </message>
    <message>
        <source>Unpin window</source>
        <translation>取消固定窗口</translation>
    </message>
    <message>
        <source>Pin window</source>
        <translation>固定窗口</translation>
    </message>
</context>
<context>
    <name>ResultWindow</name>
    <message>
        <source>Translation will appear here...</source>
        <translation>译文将显示在这里…</translation>
    </message>
    <message>
        <source>

(Stopped)</source>
        <translation>

（已停止）</translation>
    </message>
    <message>
        <source>(Stopped)</source>
        <translation>（已停止）</translation>
    </message>
    <message>
        <source>No image in clipboard</source>
        <translation>剪贴板中没有图像</translation>
    </message>
    <message>
        <source>Failed to simulate copy to read selected text. Please copy manually or type directly.</source>
        <translation>无法模拟复制来读取选中文字，请手动复制或直接输入。</translation>
    </message>
    <message>
        <source>Vontrel — Translation</source>
        <translation>Vontrel — 翻译</translation>
    </message>
    <message>
        <source>The text was cut to fit one request (at most %1 characters): the other %2 characters are neither shown nor translated.</source>
        <translation>文本已截短以放入一次请求（最多 %1 个字符）：其余 %2 个字符既不显示也不翻译。</translation>
    </message>
</context>
<context>
    <name>SafeFile</name>
    <message>
        <source>it is a folder, not a file</source>
        <translation>它是文件夹，不是文件</translation>
    </message>
    <message>
        <source>it is a named pipe, not a regular file</source>
        <translation>它是命名管道，不是普通文件</translation>
    </message>
    <message>
        <source>it is a socket, not a regular file</source>
        <translation>它是套接字，不是普通文件</translation>
    </message>
    <message>
        <source>it is a device, not a regular file</source>
        <translation>它是设备，不是普通文件</translation>
    </message>
    <message>
        <source>it is not a regular file</source>
        <translation>它不是普通文件</translation>
    </message>
    <message>
        <source>it is larger than %1 KiB</source>
        <translation>它大于 %1 KiB</translation>
    </message>
</context>
<context>
    <name>SessionController</name>
    <message>
        <source>Capture service not available</source>
        <translation>截屏服务不可用</translation>
    </message>
    <message>
        <source>Invalid image</source>
        <translation>图像无效</translation>
    </message>
    <message>
        <source>Clipboard service not available</source>
        <translation>剪贴板服务不可用</translation>
    </message>
    <message>
        <source>OCR provider not available</source>
        <translation>文字识别服务不可用</translation>
    </message>
    <message>
        <source>OCR failed: %1</source>
        <translation>文字识别失败：%1</translation>
    </message>
    <message>
        <source>AI service not available</source>
        <translation>AI 服务不可用</translation>
    </message>
    <message>
        <source>AI not configured. Please set API key.</source>
        <translation>AI 未配置，请设置 API 密钥。</translation>
    </message>
    <message>
        <source>Failed to build prompt</source>
        <translation>无法生成提示词</translation>
    </message>
    <message>
        <source>AI failed: %1</source>
        <translation>AI 请求失败：%1</translation>
    </message>
    <message>
        <source>No text to process</source>
        <translation>没有可处理的文字</translation>
    </message>
    <message>
        <source>Screen capture failed: %1</source>
        <translation>截屏失败：%1</translation>
    </message>
</context>
<context>
    <name>SourceText</name>
    <message>
        <source>Type text, press Enter to translate (Shift+Enter for newline)...</source>
        <translation>输入文字，按 Enter 翻译（Shift+Enter 换行）…</translation>
    </message>
    <message>
        <source>Recognizing text...</source>
        <translation>正在识别文字…</translation>
    </message>
    <message>
        <source>No text recognized</source>
        <translation>未识别到文字</translation>
    </message>
    <message>
        <source>OCR text will appear here...</source>
        <translation>识别出的文字将显示在这里…</translation>
    </message>
</context>
<context>
    <name>TranslationSettingsPage</name>
    <message>
        <source>Chinese</source>
        <translation>中文</translation>
    </message>
    <message>
        <source>English</source>
        <translation>英语</translation>
    </message>
    <message>
        <source>Japanese</source>
        <translation>日语</translation>
    </message>
    <message>
        <source>Korean</source>
        <translation>韩语</translation>
    </message>
    <message>
        <source>French</source>
        <translation>法语</translation>
    </message>
    <message>
        <source>German</source>
        <translation>德语</translation>
    </message>
    <message>
        <source>Spanish</source>
        <translation>西班牙语</translation>
    </message>
    <message>
        <source>Russian</source>
        <translation>俄语</translation>
    </message>
    <message>
        <source>Italian</source>
        <translation>意大利语</translation>
    </message>
    <message>
        <source>Portuguese</source>
        <translation>葡萄牙语</translation>
    </message>
    <message>
        <source>AI Actions</source>
        <translation>AI 操作</translation>
    </message>
    <message>
        <source>Target Language:</source>
        <translation>目标语言：</translation>
    </message>
</context>
<context>
    <name>UpdateChecker</name>
    <message>
        <source>Update check already in progress</source>
        <translation>正在检查更新，请稍候</translation>
    </message>
    <message>
        <source>Update check failed: the server did not answer in time (%1 s)</source>
        <translation>检查更新失败：服务器未及时响应（%1 秒）</translation>
    </message>
    <message>
        <source>Update check failed (HTTP %1)</source>
        <translation>检查更新失败（HTTP %1）</translation>
    </message>
    <message>
        <source>Update check failed: invalid response</source>
        <translation>检查更新失败：响应无效</translation>
    </message>
    <message>
        <source>Update check failed: missing fields</source>
        <translation>检查更新失败：缺少字段</translation>
    </message>
    <message>
        <source>Update check failed: invalid version format</source>
        <translation>检查更新失败：版本格式无效</translation>
    </message>
</context>
<context>
    <name>UpdatePrompt</name>
    <message>
        <source>Check for Updates</source>
        <translation>检查更新</translation>
    </message>
    <message>
        <source>You&apos;re up to date.</source>
        <translation>已是最新版本。</translation>
    </message>
    <message>
        <source>Update Available</source>
        <translation>有可用更新</translation>
    </message>
    <message>
        <source>A new version is available: %1</source>
        <translation>有新版本可用：%1</translation>
    </message>
    <message>
        <source>Download</source>
        <translation>下载</translation>
    </message>
    <message>
        <source>Later</source>
        <translation>稍后</translation>
    </message>
</context>
<context>
    <name>WaylandPlatform</name>
    <message>
        <source>This desktop&apos;s portal has no %1 interface, so screen capture is off.</source>
        <translation>此桌面的门户没有 %1 接口，因此截屏不可用。</translation>
    </message>
    <message>
        <source>Waiting for Screenshot Permission</source>
        <translation>正在等待截图权限</translation>
    </message>
    <message>
        <source>The desktop has not handed over the screenshot yet. If it asks &quot;Allow Applications to Take Screenshots?&quot;, choose Allow: Vontrel needs one screenshot per capture to read the text in the rectangle you drag, and keeps no picture.</source>
        <translation>桌面尚未交出截图。如果它询问 &quot;Allow Applications to Take Screenshots?&quot;，请选择允许：Vontrel 每次截取需要一张截图来读取你框选区域中的文字，且不保留任何图片。</translation>
    </message>
    <message>
        <source>The desktop did not allow the screenshot.</source>
        <translation>桌面不允许截图。</translation>
    </message>
    <message>
        <source>The desktop refuses Vontrel&apos;s screenshots without asking: someone chose Deny when it asked &quot;Allow Applications to Take Screenshots?&quot;, and it keeps that answer. To be asked again, run this in a terminal, then capture again:
%1</source>
        <translation>桌面不经询问就拒绝 Vontrel 截图：有人在它询问 &quot;Allow Applications to Take Screenshots?&quot; 时选择了拒绝，而它记住了这个回答。要让它重新询问，请在终端中运行以下命令，然后再次截取：
%1</translation>
    </message>
</context>
</TS>
