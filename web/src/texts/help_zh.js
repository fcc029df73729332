// The texts of the Help page in Simplified Chinese. The keys, placeholders and lines are those of help_en.js.
/** @type {Record<string, string>} */
export const helpZh = {
  "help.intro": "您可以搜索 Velmora 显示过的文字，也可以从下面选择主题。",
  "help.contents": "目录",
  "help.find": "查找您看到的文字",
  "help.findHint": "几个词或整条消息，中文或英文均可",
  "help.found": "找到的条目：{count}",
  "help.foundNone": "没有找到。请减少关键词，或从目录中查找。",
  "help.showAll": "显示全部",
  "help.cause": "原因",
  "help.remedy": "解决方法",
  "help.sent": "控制服务返回的原文：",
  "help.forms": "也会显示为：",
  "help.more": "了解详情",
  "help.whatIsThis": "这是什么意思？",
  "help.newTab": "（在另一个标签页中打开）",
  "help.sample.device": "扬声器",
  "help.sample.otherDevice": "另一个设备",
  "help.see.refused": "设备拒绝修改时的步骤",

  // ---- first sound ----
  "help.start": "五步听到效果",
  "help.start.steps":
    "在 Velmora 文件夹中双击 start.cmd；如果 Velmora 已在运行，请先双击 stop.cmd。窗口询问是否以管理员身份启动时，请输入 y。添加到设备时需要管理员权限，平时收听不需要。\n浏览器会打开页面。如果没有打开，请打开 Velmora 窗口中“Open:”后面的地址。\n在“声音”页面顶部确认设备，它应当是您正在收听的设备。\n选择“添加并重启音频”。所有程序的声音会中断几秒钟。\n播放声音并开启 Velmora。第一行会显示“正在使用 Velmora 音效”。按 O 键可以对比原声。",
  "help.start.text": "只需做一次。“声音”页面的第一行会说明还缺什么，旁边的“了解详情”会打开这里的说明。",

  // ---- controls ----
  "help.controls": "各个控件的作用",
  "help.controls.sound": "“声音”页面",
  "help.controls.equalizer": "“声音”页面：均衡器",
  "help.controls.devices": "“声音”页面：音量和设备",
  "help.controls.advanced": "“高级”页面",
  "help.hear": "第一行",
  "help.hear.text":
    "说明您听到的是否为 Velmora 音效；如果不是，会指出要做的一件事。“判断依据”列出结论的来源。只有所选设备正在播放声音时，才能得出肯定的结论。",
  "help.device": "顶部的设备",
  "help.device.text":
    "Velmora 使用的播放设备，起初是 Windows 的默认设备。选择其他设备不会更改 Windows 或其他程序的设置，并在 Velmora 结束前一直有效。",
  "help.enhancement": "Velmora 开关",
  "help.enhancement.text":
    "打开或关闭增强效果。均衡器有单独的开关。如果强度为 0 %，打开时会设为上次的强度或 50 %。",
  "help.strength": "强度",
  "help.strength.text": "增强效果的大小，从 0 %（无效果）到 100 %。",
  "help.original": "听原声",
  "help.original.text": "声音不经增强和均衡器，原样播放，直到您再次按下。也可以按 O 键。",
  "help.lastSettings": "使用上次的设置",
  "help.lastSettings.text":
    "电脑重启后，音效会忘记设置。此浏览器保留您上次的设置，并在这里提供。选择此按钮之前，不会有任何更改。",
  "help.language": "语言",
  "help.language.text": "在中文和英文之间切换。此浏览器会记住您的选择。",
  "help.equalizer": "均衡器开关",
  "help.equalizer.text": "打开或关闭 15 个频段。均衡器关闭时，第一次编辑或选择预设会打开它。",
  "help.curve": "曲线",
  "help.curve.text":
    "显示均衡器在 20 Hz 到 20 kHz 之间的作用。每个圆点是一个正在使用的频段：左右拖动改变频率，上下拖动改变增益；按住 Shift 拖动，或在圆点上滚动滚轮，可改变 Q 值；双击圆点可将频段归零。较淡的第二条曲线是对比对象。",
  "help.bands": "频段的各个字段",
  "help.bands.text":
    "类型是形状，例如峰值或搁架；频率是作用的位置，增益是提升或降低的幅度，Q 值越大范围越窄。字段可填数字，单位可省略。清空或填入无效的值时，会恢复原值。",
  "help.addBand": "添加频段、归零",
  "help.addBand.text": "“添加频段”启用下一个空闲频段。“归零”让频段不再改变声音。",
  "help.clip": "“可能削波”",
  "help.clip.text": "曲线加上输出微调超过了满刻度，较响的声音可能失真。请按提示降低输出，或打开限幅器。",
  "help.undo": "撤消和恢复",
  "help.undo.text":
    "逐步撤消均衡器的更改、预设和导入，也可以恢复。一次拖动算一步。刷新或关闭页面后，步骤不再保留。",
  "help.compare": "A 和 B",
  "help.compare.text": "两种均衡器设置，供您比较。编辑其中一种，再切换到另一种试听。按 C 键切换。",
  "help.loudness": "A 和 B 音量一致",
  "help.loudness.text":
    "较响的设置往往听起来更好。此项通过输出微调降低较响的一方，并显示降低了多少。关闭此项后，输出微调会恢复。",
  "help.presets": "预设",
  "help.presets.text":
    "带名称的均衡器设置。内置预设是页面自带的，保存时会生成您自己的副本。“还原”回到已保存的设置。“重命名”和“删除”用于您自己的预设；删除后，在进行其他操作之前可以撤消。替换任何内容之前，页面都会询问。名称可用字母（含汉字）、数字、空格、- 和 _，不区分大小写。与预设对应的输出微调保存在此浏览器中。在“更多”中选择“设为…的预设”，可将预设用于当前设备；再次选择该设备时，页面会提供此预设。“重置为平直”也可以撤消。",
  "help.import": "导入",
  "help.import.text":
    "从文件或文本读取均衡器设置：Velmora 自己的格式、参量滤波器，或 GraphicEQ 行。预览会显示曲线，以及未采用的每一行和原因。选择“使用此设置”之前，不会有任何更改。",
  "help.export": "导出",
  "help.export.text":
    "把设置保存为文件或复制：可用 Velmora 自己的格式，也可用供其他均衡器使用的文本格式。页面会列出文本无法保存的内容。",
  "help.volume": "音量和静音",
  "help.volume.text": "即 Windows 中所选设备的音量和静音，对所有程序有效。其他程序的更改也会显示在这里。",
  "help.devices": "播放设备",
  "help.devices.text":
    "列出每个已连接的设备、电平、正在播放的程序，以及是否已添加 Velmora。“在此使用”让 Velmora 改用该设备。",
  "help.add": "添加到此设备、从此设备移除",
  "help.add.text":
    "添加后，Windows 会在该设备上运行 Velmora；移除则恢复原状。两者都需要管理员权限，并在 Windows 音频重启后生效：可以立即重启，也可以稍后重启。",
  "help.restart": "重启音频",
  "help.restart.text":
    "Windows 在音频启动时读取设备的音效。重启时，所有声音会中断几秒钟，录音和通话也一样。页面会列出正在播放的程序并先询问。",
  "help.microphones": "麦克风",
  "help.microphones.text": "显示已连接的麦克风及其电平，仅供参考。Velmora 不会改变录音。",
  "help.outputTrim": "输出微调",
  "help.outputTrim.text": "调节音效之后的音量，范围 -60 到 +20 dB。0 dB 表示不改变。",
  "help.maskTime": "时间平滑",
  "help.maskTime.text": "范围 0 到 0.95。数值越大，增强效果变化越平缓；数值越小，越紧跟声音。",
  "help.maskFrequency": "频率平滑",
  "help.maskFrequency.text": "使相邻频率的增强效果更均匀，听起来更柔和。",
  "help.limiter": "限幅器",
  "help.limiter.text": "使峰值不超过上限，避免较响的声音失真。",
  "help.limiterCeiling": "限幅上限",
  "help.limiterCeiling.text": "限幅器允许的最高电平，范围 -12 到 0 dB。",
  "help.stereoLink": "立体声联动",
  "help.stereoLink.text":
    "左右声道如何一起处理，有 0、1、2 三种模式。每种模式的作用由音效的算法决定，请试听后选择。",
  "help.fade": "均衡器淡变",
  "help.fade.text": "均衡器过渡到新设置所用的时间，1 到 200 毫秒。时间越长越平滑。",
  "help.captures": "录制",
  "help.captures.text":
    "在音效内部的四个位置录音，用于查找故障。选择时长，在播放声音时开始；“停止”可提前结束；“导出”写出四个 WAV 文件并替换上一次的文件；“下载”把它们打包为一个 ZIP 文件，下载期间 Velmora 不响应其他操作。",
  "help.diagnostics": "诊断",
  "help.diagnostics.text": "Velmora 所知的音效、安装、Windows 音频和所选设备的全部信息，用于查找故障。",
  "help.report": "复制报告",
  "help.report.text": "复制第一行、版本、设备和各项数值，便于发给帮助您的人。其中没有密码，也没有链接。",
  "help.account": "账号",
  "help.account.text":
    "如果 Velmora 启动时指定了账号服务，账号显示在“高级”页面末尾。您可以注册，也可以用用户名或二维码登录。同一时间只能在一台设备上登录：在另一台设备上登录会结束这里的会话。Velmora 每次启动后都是未登录状态。",
  "help.account.primary": "解除常用电脑",
  "help.account.primary.text":
    "每个账号有一台常用电脑。换用另一台电脑之前，请先在这里解除，再到那台电脑上登录。这里的会话会继续。",
  "help.account.referrer": "推荐人",
  "help.account.referrer.text":
    "如果有人推荐了您，请填写一次对方的 ID。设置推荐人后，该字段不再显示。您自己的 ID 和邀请链接供他人使用。",

  // ---- verdicts ----
  "help.verdicts": "第一行的含义",
  "help.verdict.expired.cause":
    "Velmora 每次启动都会生成新的链接，只有最新的有效。旧的书签或以前打开的标签页使用的是旧链接。",
  "help.verdict.expired.remedy":
    "请双击 start.cmd，它会打开正在运行的 Velmora 的页面；也可以打开 Velmora 窗口中“Open:”后面的地址。书签只在 Velmora 结束前有效。",
  "help.verdict.gone.cause": "Velmora 窗口已关闭，或程序已结束。",
  "help.verdict.gone.remedy": "请双击 start.cmd，它会重新启动 Velmora 并打开页面。正在播放的声音仍有音效。",
  "help.verdict.checking.cause": "页面刚刚打开，或两次读取的内容还不一致。",
  "help.verdict.checking.remedy": "请稍等几秒。如果一直如此，请刷新页面。",
  "help.verdict.waiting.cause":
    "Velmora 一次只处理一件事，已有一秒以上没有空闲：可能有其他页面或程序在使用，或正在重启音频、下载、等待账号服务。",
  "help.verdict.waiting.remedy":
    "请稍等。超过 10 秒时，请关闭其他浏览器标签页和使用 Velmora 的程序。如果没有改善，请重新启动 Velmora。",
  "help.verdict.restarting.cause": "正在添加、移除或重启。Windows 会停止音频服务，然后重新启动。",
  "help.verdict.restarting.remedy":
    "请稍等，通常需要几秒。最慢时，Windows 音频需要 20 秒，每个依赖它的服务再加 10 秒。期间不要关闭 Velmora 窗口，否则 Windows 音频会保持停止状态。",
  "help.verdict.restartFailed.cause":
    "更改已完成，但 Windows 没有停止或启动音频。消息中有 Windows 给出的原因。",
  "help.verdict.restartFailed.remedy": "请选择“重试”。如果完全没有声音，请重启电脑，更改也会随之生效。",
  "help.verdict.notInstalled.cause": "Windows 中没有注册该音效：从未安装，或已经卸载。",
  "help.verdict.notInstalled.remedy": "请重新运行 Velmora 的安装程序，然后刷新页面。",
  "help.verdict.fileMissing.cause": "音效的文件被删除、移动，或被杀毒软件隔离。",
  "help.verdict.fileMissing.remedy": "请查看杀毒软件的隔离列表，然后重新运行 Velmora 的安装程序。",
  "help.verdict.noDevice.cause": "Windows 中没有已连接且已启用的播放设备。",
  "help.verdict.noDevice.remedy":
    "请连接扬声器或耳机。如果已经连接，请在 Windows 的“设置 > 系统 > 声音”中启用。页面会自动识别。",
  "help.verdict.deviceGone.cause": "设备已拔出、关闭，或在 Windows 中被禁用。无线耳机也可能超出了范围。",
  "help.verdict.deviceGone.remedy": "请重新连接，或在页面顶部选择其他设备。",
  "help.verdict.noEffects.cause": "设备的驱动程序不支持音效。部分虚拟设备和无线设备如此。",
  "help.verdict.noEffects.remedy": "请选择其他设备。设备厂商的新版驱动程序也许支持。",
  "help.verdict.needsAdmin.cause": "只有管理员才能更改设备的音效，而 Velmora 启动时没有管理员权限。",
  "help.verdict.needsAdmin.remedy":
    "请双击 stop.cmd，再双击 start.cmd，窗口询问是否以管理员身份启动时输入 y，然后在新打开的页面中重试。如果您没有管理员密码，请联系电脑的管理员。",
  "help.verdict.refused.cause":
    "Velmora 已有管理员权限，但 Windows 仍拒绝修改：设备的设置归系统所有，或受安全软件保护，或设备刚刚断开。",
  "help.verdict.refused.remedy": "请确认设备已连接，然后重试。如果仍被拒绝，请按照设备拒绝修改时的步骤操作。",
  "help.verdict.goneAgain.cause":
    "此浏览器曾看到 Velmora 已添加到该设备，之后被移除了：通常是驱动程序更新，有时是 Windows 或其他声音程序。",
  "help.verdict.goneAgain.remedy": "请选择“重新添加”。如果每次开机后都这样，请检查设备厂商的声音管理程序。",
  "help.verdict.notAdded.cause": "Velmora 已安装，但还没有添加到此设备。",
  "help.verdict.notAdded.remedy": "请选择“添加并重启音频”。如果您正在通话或录音，请选择“添加，稍后重启”。",
  "help.verdict.restartPending.cause": "Velmora 已添加，但 Windows 音频还没有重启。",
  "help.verdict.restartPending.remedy": "在声音可以中断几秒的时候，请选择“重启音频”。重启电脑也可以。",
  "help.verdict.engineKept.cause": "Windows 音频已重启，但仍在使用之前的音效。",
  "help.verdict.engineKept.remedy": "请重启电脑，然后播放声音。",
  "help.verdict.muted.cause": "设备在 Windows 中已静音，或音量为 0 %。",
  "help.verdict.muted.remedy": "请选择“取消静音”。音量为 0 % 时会设为 20 %。",
  "help.verdict.off.cause": "增强效果和均衡器都已关闭。",
  "help.verdict.off.remedy": "请选择“开启”，或打开均衡器。",
  "help.verdict.bypassed.cause": "其他页面或程序让声音原样播放。您的设置仍然保留。",
  "help.verdict.bypassed.remedy": "请选择“停止旁路”。",
  "help.verdict.original.cause": "您按下了“听原声”或 O 键。",
  "help.verdict.original.remedy": "请选择“回到 Velmora”，或再按一次 O 键。",
  "help.verdict.strengthZero.cause": "增强效果已打开，但强度为 0 %，不会改变声音；均衡器已关闭。",
  "help.verdict.strengthZero.remedy": "请选择“设为 50 %”，或移动强度滑块。",
  "help.verdict.couldNotStart.cause":
    "设备正在播放声音，但没有按设置经过 Velmora。下面一行是具体原因，每个原因在这里都有说明。",
  "help.verdict.couldNotStart.remedy":
    "请停止播放，等几秒后再播放。如果没有改善，请先重启 Windows 音频，再重启电脑。如果一直如此，请选择“复制报告”并发给帮助您的人。",
  "help.verdict.severalDevices.cause": "多个添加了 Velmora 的设备同时在播放，而音效的计数是所有设备的总和。",
  "help.verdict.severalDevices.remedy": "请只在一个设备上播放。",
  "help.verdict.otherDevice.cause":
    "有声音在播放，但不在这里选择的设备上。Windows 或播放程序选用了其他设备。",
  "help.verdict.otherDevice.remedy": "请选择“在这里使用{device}”，或在 Windows 或播放程序中选择需要的设备。",
  "help.verdict.ready.cause": "一切就绪，设备上没有声音在播放。",
  "help.verdict.ready.remedy":
    "请播放声音。如果听到声音而仍显示此内容，说明声音没有经过 Windows 混音，或来自 Windows 未列出的设备。",
  "help.verdict.works.cause": "设备正在播放声音，声音经过 Velmora，您的设置已生效。",
  "help.verdict.works.remedy": "无需操作。如果听不出差别，请按 O 键对比，提高强度，或试用预设。",
  "help.verdict.unclear.cause": "有一部分必要的信息无法读取，下面一行会说明是哪一部分。",
  "help.verdict.unclear.remedy":
    "请打开“判断依据”查看已知情况，然后刷新页面。如果一直如此，请以管理员身份重新启动 Velmora。",
  "help.verdict.removalPending.cause":
    "Velmora 已从此设备移除，但 Windows 音频还没有重启，已加载的音效可能仍在工作。",
  "help.verdict.removalPending.remedy":
    "在声音可以中断几秒的时候，请选择“重启音频”。重启电脑也可以。如需继续在此设备上使用 Velmora，请选择“重新添加”。",

  // ---- why it could not start ----
  "help.reasons": "Velmora 无法启动的原因",
  "help.reason.engine.cause": "Windows 通过 audiodg.exe 播放声音，而它没有运行。有些程序会绕过它播放。",
  "help.reason.engine.remedy": "请在播放程序中关闭独占或直接输出，然后停止播放并重新开始。",
  "help.reason.notLoaded.cause":
    "Windows 没有为此声音加载 Velmora。可能该设备关闭了音频增强，或 Windows 不接受音效文件。",
  "help.reason.notLoaded.remedy":
    "请在 Windows 的“设置 > 系统 > 声音”中选择该设备，打开音频增强，然后停止播放并重新开始。如果没有改善，请重新运行 Velmora 的安装程序。",
  "help.reason.algorithmNotLoaded.cause": "无法加载 fse.dll 或其数据。均衡器不需要它，增强效果需要它。",
  "help.reason.algorithmNotLoaded.remedy": "请重新运行 Velmora 的安装程序，然后重启 Windows 音频。",
  "help.reason.initialize.cause": "Windows 启动了音效，但音效报告失败。",
  "help.reason.initialize.remedy":
    "请在下面查找括号中的代码。请重启 Windows 音频。如果一直如此，请重新运行 Velmora 的安装程序。",
  "help.reason.format.cause": "设备使用的声音格式不受音效支持。",
  "help.reason.format.remedy":
    "请在 Windows 的设备属性的“高级”中选择其他格式，例如 24 位、48000 Hz。也可以试试关闭空间音效。",
  "help.reason.lock.cause": "音效已启动，但未能做好处理这个声音的准备。",
  "help.reason.lock.remedy":
    "请停止播放并重新开始，然后重启 Windows 音频。如果一直如此，请在设备属性中试用其他格式。",
  "help.reason.algorithm.cause": "增强算法报告了错误。该数字供查找故障的人使用。",
  "help.reason.algorithm.remedy": "请停止播放并重新开始。如果再次出现，请选择“复制报告”并发给帮助您的人。",
  "help.reason.differs.cause": "音效使用的设置与页面不同，可能是其他版本的音效。",
  "help.reason.differs.remedy":
    "请改变一次强度。如果一直如此，请重启 Windows 音频。如果更新过 Velmora，请重启电脑。",
  "help.reason.notApplied.cause": "音效正在运行，但没有报告使用了任何设置。",
  "help.reason.notApplied.remedy":
    "请停止播放并重新开始，然后重启 Windows 音频。如果更新过 Velmora，请重启电脑。",
  "help.reason.still.cause": "设备正在播放，但音效没有收到声音。程序可能以独占模式播放，绕过了所有音效。",
  "help.reason.still.remedy": "请在播放程序中关闭独占或直接输出，然后停止播放并重新开始。",
  "help.reason.hangs.cause": "音效已开始启动，但没有完成。",
  "help.reason.hangs.remedy": "请重启 Windows 音频。如果一直如此，请重启电脑。",

  // ---- errors ----
  "help.errors": "错误消息",
  "help.errors.use": "页面和设置",
  "help.errors.presets": "预设",
  "help.errors.import": "导入",
  "help.errors.captures": "录制",
  "help.errors.devices": "设备和音量",
  "help.errors.change": "添加、移除和重启",
  "help.errors.account": "账号",
  "help.error.invalidRequest.cause": "请求不完整或过大，可能被其他程序或浏览器扩展修改。",
  "help.error.invalidRequest.remedy": "请刷新页面后重试。如果一直如此，请在不带扩展的无痕窗口中打开页面。",
  "help.error.token.cause": "此链接生成之后，Velmora 重新启动过。",
  "help.error.token.remedy": "请打开 Velmora 窗口中“Open:”后面的地址。",
  "help.error.origin.cause": "页面是用其他名称或通过其他网页打开的。",
  "help.error.origin.remedy": "请完全按照 Velmora 窗口中显示的地址打开。它只能在本机使用。",
  "help.error.route.cause": "Velmora 已更新，而本页属于之前的版本。",
  "help.error.route.remedy": "请刷新页面。",
  "help.error.range.cause": "数值超出音效接受的范围。页面不会发送这样的值，它来自其他程序或旧版页面。",
  "help.error.range.remedy": "请刷新页面后重新设置。没有任何更改生效。",
  "help.error.bands.cause": "均衡器设置不完整：由其他程序发送，或文件被手动修改过。",
  "help.error.bands.remedy": "请刷新页面。如果是预设，请在页面中重新保存。没有任何更改生效。",
  "help.error.record.cause": "Velmora 与音效共用的一块内存没有打开。",
  "help.error.record.remedy": "请以管理员身份重新启动 Velmora。",
  "help.error.presetName.cause":
    "名称中有不允许的字符，或首尾有空格，或过长。一个汉字占 3 个字节，最多 64 个字节。",
  "help.error.presetName.remedy": "请使用字母（含汉字）、数字、空格、- 和 _，并缩短名称。",
  "help.error.noPreset.cause": "预设已在其他标签页或文件夹中被删除或重命名，或文件为空。",
  "help.error.noPreset.remedy": "请选择其他预设。如需保留当前设置，请保存它。",
  "help.error.presetFile.cause":
    "Windows 不允许 Velmora 写入文件：文件夹受保护、磁盘已满，或名称为系统保留。",
  "help.error.presetFile.remedy":
    "请换一个名称。然后检查可用空间，以及您能否写入预设文件夹；它也可能受安全软件保护。",
  "help.error.noCapture.cause": "没有导出的文件，或四个文件中缺少一个。",
  "help.error.noCapture.remedy": "请在播放声音时开始录制，然后导出，并等待文件就绪。",
  "help.error.captureUnreadable.cause": "音效仍在写入，或文件被其他程序占用，或 Velmora 无权读取。",
  "help.error.captureUnreadable.remedy": "请稍等后重新下载。如果一直如此，请关闭占用文件的程序并重新导出。",
  "help.error.captureLarge.cause": "有一个文件超过 4 GiB，无法放入 ZIP 文件。",
  "help.error.captureLarge.remedy": "请缩短录制时间，或直接从文件夹中复制文件。",
  "help.error.captureChanged.cause": "Velmora 读取文件时，音效正在写入。",
  "help.error.captureChanged.remedy": "请等导出完成后重新下载。",
  "help.error.deviceId.cause": "没有选择设备，Windows 也没有默认设备。",
  "help.error.deviceId.remedy": "请连接设备，然后在页面顶部选择它。",
  "help.error.deviceMissing.cause": "设备已拔出、关闭或被禁用。",
  "help.error.deviceMissing.remedy": "请重新连接，或选择其他设备。",
  "help.error.deviceChoice.cause": "Windows 无法列出设备，常见于设备正在连接时。",
  "help.error.deviceChoice.remedy": "请等几秒后重新选择设备。",
  "help.error.volume.cause": "设备已断开，或驱动程序不允许 Windows 设置音量或静音。",
  "help.error.volume.remedy": "请检查设备是否已连接，或使用设备上的按钮。",
  "help.error.chainLocked.cause":
    "Velmora 没有管理员权限；或设备的设置归系统所有或受保护；或设备不支持音效。",
  "help.error.chainLocked.remedy":
    "请双击 stop.cmd，再双击 start.cmd，窗口询问是否以管理员身份启动时输入 y。如果 Velmora 已有管理员权限，请按照设备拒绝修改时的步骤操作。",
  "help.error.chainUnreadable.cause":
    "设备的音效列表已损坏，或被驱动程序或其他程序写成了其他形式。Velmora 没有改动它，或无法确认改动。",
  "help.error.chainUnreadable.remedy": "请重新安装设备的驱动程序，重启电脑后重试。",
  "help.error.chainUnwritable.cause":
    "Windows 允许 Velmora 打开设备的设置，但不允许修改。它可能受安全软件保护。",
  "help.error.chainUnwritable.remedy": "请暂停或设置该安全软件，或按照设备拒绝修改时的步骤操作。",
  "help.error.chainReverted.cause": "更改已写入，但立即被其他程序改回：设备厂商的声音管理程序或安全软件。",
  "help.error.chainReverted.remedy": "请关闭该程序后重试，添加 Velmora 之后再启动它。",
  "help.error.notPlayback.cause": "所选设备是麦克风，或设备 ID 已损坏。",
  "help.error.notPlayback.remedy": "请选择扬声器或耳机。",
  "help.error.managerClosed.cause": "Velmora 无权管理 Windows 服务。",
  "help.error.managerClosed.remedy": "请以管理员身份启动 Velmora，或重启电脑，更改也会随之生效。",
  "help.error.audioLocked.cause": "Velmora 没有管理员权限，或没有安装 Windows 音频服务。",
  "help.error.audioLocked.remedy": "请以管理员身份启动 Velmora 并选择“重试”，或重启电脑。",
  "help.error.audioKeepsRunning.cause": "Windows 拒绝停止音频：有其他服务依赖它，或它正在启动或停止。",
  "help.error.audioKeepsRunning.remedy": "请等半分钟后选择“重试”，或重启电脑。",
  "help.error.audioStopsSlowly.cause": "Windows 音频超过 10 秒没有停止。",
  "help.error.audioStopsSlowly.remedy":
    "请关闭正在播放或录音的程序，然后选择“重试”。如果没有声音，请重启电脑。",
  "help.error.audioNotStarted.cause": "Windows 音频已停止，但无法启动。",
  "help.error.audioNotStarted.remedy": "请选择“重试”。如果没有声音，请重启电脑。消息中的结果说明了原因。",
  "help.error.audioStartsSlowly.cause": "Windows 音频超过 10 秒没有启动。",
  "help.error.audioStartsSlowly.remedy":
    "请等半分钟，它可能已经在运行。如果没有声音，请选择“重试”或重启电脑。",
  "help.error.accountFields.cause": "有一项没有填写。",
  "help.error.accountFields.remedy": "请填写后重试。",
  "help.error.accountState.cause": "页面丢失了登录进度。",
  "help.error.accountState.remedy": "请重新登录。",
  "help.error.accountSignIn.cause": "这里没有登录，或会话已经结束。",
  "help.error.accountSignIn.remedy": "请登录后重试。",
  "help.error.accountMissing.cause": "Velmora 启动时没有指定账号服务的地址。",
  "help.error.accountMissing.remedy":
    "没有账号也可以使用 Velmora。如需使用账号，请用 --account-service 加上地址启动。",
  "help.error.accountAddress.cause": "--account-service 后面的地址不完整。",
  "help.error.accountAddress.remedy":
    "请用以 https:// 开头的地址启动 Velmora，并向账号服务的提供方确认地址。",
  "help.error.accountUnreachable.cause":
    "账号服务没有及时响应，或网络、代理、防火墙阻断了连接。数字是系统的错误代码。",
  "help.error.accountUnreachable.remedy":
    "请检查浏览器能否打开其他网页，以及电脑的日期和时间是否正确。几分钟后再试。",
  "help.error.accountStatus.cause":
    "账号服务拒绝了请求，没有说明原因。数字是它的状态：401 和 403 与用户名和密码有关，429 表示尝试次数过多，500 及以上是它自身的故障。",
  "help.error.accountStatus.remedy": "请检查填写的内容。429 及以上时，请等几分钟再试。",
  "help.error.accountActionRefused.cause": "账号服务没有执行操作，也没有说明原因。数字是它的状态。",
  "help.error.accountActionRefused.remedy": "如果填写了 ID，请检查它。请重新登录后再试一次。",
  "help.error.accountUnreadable.cause":
    "收到的不是预期的内容：可能是酒店等网络的登录页面、错误的地址，或账号服务的故障。",
  "help.error.accountUnreadable.remedy": "请在浏览器中打开任意网页，看网络是否要求登录，然后重试。",
  "help.error.accountElsewhere.cause": "同一时间只能在一台设备上登录。您在这里登录会结束另一台设备上的会话。",
  "help.error.accountElsewhere.remedy": "无需操作。如果您不认识那台设备，请更改账号的密码。",

  // ---- what the pages say when something fails ----
  "help.message.notDone.cause": "冒号后面的内容就是原因。",
  "help.message.notDone.remedy":
    "请在这里查找冒号后面的内容。如果没有给出原因，请刷新页面后重试。如果一直如此，请选择“复制报告”并发给帮助您的人。",
  "help.message.unsent.cause": "更改时 Velmora 没有响应：它正忙，或已停止。",
  "help.message.unsent.remedy":
    "请选择“立即使用”发送更改，或选择“放弃”。如果 Velmora 已停止，请双击 start.cmd。",
  "help.message.changedElsewhere.cause": "均衡器还在另一个标签页中打开，或其他程序也在更改它。",
  "help.message.changedElsewhere.remedy": "无需操作。为避免这种情况，请只在一个页面中更改均衡器。",
  "help.message.notKept.cause": "浏览器不允许此页面保存数据。无痕窗口和某些 Cookie 设置会这样。",
  "help.message.notKept.remedy":
    "请在普通窗口中打开页面，并在浏览器设置中允许 127.0.0.1 保存网站数据。其他功能不受影响。",
  "help.message.copyByHand.cause": "浏览器拒绝了对剪贴板的访问。",
  "help.message.copyByHand.remedy": "请选中文本并按 Ctrl+C。也可以在浏览器设置中允许 127.0.0.1 使用剪贴板。",
  "help.message.presetWriting.cause":
    "Velmora 无法写入、读回或删除预设文件：文件正被其他程序使用，或受写保护，或控制服务没有响应。",
  "help.message.presetWriting.remedy":
    "请关闭正在使用预设文件夹的程序，例如编辑器或备份软件，并确认文件没有写保护，然后重试。如果预设保存了两份，请删除不需要的一份。",
  "help.message.presetNaming.cause":
    "预设是文件，而 Windows 不允许某些名称。名称至少一个字符、最多 64 字节，首尾不能有空格，也不能是 NUL、COM1 等系统保留的名称。",
  "help.message.presetNaming.remedy": "请使用字母（含汉字）、数字、空格、- 和 _，并缩短名称。",
  "help.message.presetListing.cause": "Velmora 无法读取预设文件夹，或没有响应。冒号后面的内容是原因。",
  "help.message.presetListing.remedy":
    "请选择“重试”。如果一直如此，请检查预设文件夹是否存在，以及您能否读取它。",
  "help.message.presetReading.cause": "预设文件为空、已损坏，或其中不是均衡器设置，可能由其他程序写入。",
  "help.message.presetReading.remedy": "请选择其他预设。如需继续使用此名称，请用它保存当前设置。",
  "help.message.presetForeign.cause": "其他程序或其他人把此文件放进了预设文件夹，而预设不能使用这样的名称。",
  "help.message.presetForeign.remedy":
    "请在预设文件夹中重命名该文件：只用字母（含汉字）、数字、空格、- 和 _，最多 64 字节。",
  "help.message.presetGone.cause": "预设已在另一个标签页、其他程序或文件夹中被删除或重命名。",
  "help.message.presetGone.remedy": "如需保留当前设置，请保存它；否则请选择其他预设。",
  "help.message.importFile.cause":
    "每次只能导入一个文件或一段文本。文件必须是文本，例如 .txt 或 .json，且不超过 1 MiB。",
  "help.message.importFile.remedy":
    "请选择其他文件。如果文件能在文本编辑器中打开，也可以复制其中的文本并粘贴到这里。",
  "help.message.importNothing.cause": "文本中没有可以识别的行，或 JSON 已损坏，或其中不是均衡器设置。",
  "help.message.importNothing.remedy":
    "请在原来的程序中重新导出，选择参量滤波器或 GraphicEQ 行。如果是 JSON，请使用 Velmora 导出的文件。",
  "help.message.importLines.cause":
    "每一行旁边都写明了原因：无法识别该行，其中的数值缺失或超出范围，或均衡器没有空余的频段。其他行均会使用。",
  "help.message.importLines.remedy":
    "请查看预览。如果需要这些行，请在文本中改正，预览会随之更新；否则请选择“使用此设置”。",
  "help.message.captureSilent.cause": "只有在添加了 Velmora 的设备上播放声音时，音效才会运行并响应操作。",
  "help.message.captureSilent.remedy":
    "请在添加了 Velmora 的设备上播放声音，直到第一行显示“正在使用 Velmora 音效”。录制和导出期间请继续播放。",
  "help.message.captureMissing.cause":
    "音效没有写出全部四个文件：没有声音经过它，或磁盘已满，或它写入的文件夹与 Velmora 读取的不同。",
  "help.message.captureMissing.remedy":
    "请在添加了 Velmora 的设备上播放声音，然后重新导出。请检查磁盘空间。如果没有改善，请在不带 --capture-directory 的情况下启动 Velmora。",
  "help.message.captureGone.cause":
    "文件曾经就绪，但之后至少有一个被删除、移动或更改：可能是有人操作、其他程序所为，或又进行了一次导出。",
  "help.message.captureGone.remedy":
    "请把文件放回原处并稍候，页面每秒会重新检查；也可以趁音效仍保留录音时选择“重新导出”。",
  "help.message.captureOld.cause": "导出时未能删除之前的文件，通常是因为有程序打开了它们。",
  "help.message.captureOld.remedy": "请关闭正在使用这些文件的程序，例如播放器，然后重新导出。",
  "help.message.captureElsewhere.cause": "音效由所有页面和程序共用，其中一个开始、停止或导出了录制。",
  "help.message.captureElsewhere.remedy":
    "如果是您自己的录制，可以在这里导出。否则请等对方完成：新的录制会取代它。",
  "help.message.captureBroken.cause":
    "Velmora 或浏览器在下载完成之前中断了下载。为避免留下损坏的文件，未保留任何内容。",
  "help.message.captureBroken.remedy": "请重新下载。如果每次都中断，请重新导出，或直接从文件夹中复制文件。",
  "help.message.captureUnwritable.cause": "磁盘已满，或文件夹受写保护，或驱动器已移除。",
  "help.message.captureUnwritable.remedy": "请腾出空间或选择其他文件夹，然后重新下载。",
  "help.message.devicesTrouble.cause":
    "Windows 没有列出全部设备，常见于设备正在连接时。括号中的代码说明了原因。",
  "help.message.devicesTrouble.remedy":
    "请等几秒，页面会重新读取。如果一直如此，请在这里查找该代码，并重启 Windows 音频。",
  "help.message.accountOver.cause": "没有在规定的时间内确认登录，最长十分钟。",
  "help.message.accountOver.remedy": "请重新登录，或选择“重新获取二维码”，并立即在手机上确认。",
  "help.message.accountDenied.cause": "登录在手机上被拒绝，或被账号服务拒绝。",
  "help.message.accountDenied.remedy": "如果是误操作，请重新登录。如果不是您发起的登录，请更改账号的密码。",
  "help.message.accountIncomplete.cause": "账号服务有答复，但答复无法使用，这是账号服务的故障。",
  "help.message.accountIncomplete.remedy":
    "请用用户名登录，或等几分钟再试。如果一直如此，请联系账号服务的提供方。",
  "help.message.accountEnded.cause":
    "同一时间只能在一台设备上登录。在另一台设备上登录结束了这里的会话，或会话已过期。",
  "help.message.accountEnded.remedy": "如需在这里使用账号，请重新登录。如果您不认识那台设备，请更改密码。",

  // ---- results of Windows ----
  "help.results": "Windows 错误代码",
  "help.results.text":
    "有些消息末尾的括号中有错误代码：5 这样的数字，或以 0x 开头的代码。“诊断”和报告中还会显示为带负号的长数字。这几种写法都可以在这里查找。",
  "help.result.access.cause": "Windows 拒绝了访问。",
  "help.result.access.remedy":
    "请以管理员身份启动 Velmora。如果已经如此，则是安全软件或设备的设置拒绝了访问。",
  "help.result.missing.cause": "找不到设备、文件或设置。",
  "help.result.missing.remedy":
    "请连接设备。如果已经连接，请重新安装其驱动程序；如果是 Velmora 自己的文件，请重新运行安装程序。",
  "help.result.disk.cause":
    "无法按此名称写入或找到文件或文件夹：受写保护、正被使用、磁盘已满，或 Windows 不接受该名称。",
  "help.result.disk.remedy": "请检查可用空间和文件夹，或换一个名称。",
  "help.result.memory.cause": "电脑的可用内存不足。",
  "help.result.memory.remedy": "请关闭一些程序，或重启电脑。",
  "help.result.partial.cause": "Velmora 读取的内容正在变化，或 Windows 只允许读取一部分。",
  "help.result.partial.remedy":
    "如果随后消失，则无需操作，页面会重新读取。如果一直如此，请以管理员身份启动 Velmora。",
  "help.result.setting.cause": "注册表中的设置已损坏，或形式与预期不同。",
  "help.result.setting.remedy": "请重新安装设备的驱动程序，然后重启电脑。",
  "help.result.file.cause": "程序文件缺失、损坏，或适用于其他类型的 Windows。",
  "help.result.file.remedy": "请重新运行 Velmora 的安装程序。",
  "help.result.signature.cause": "Windows 无法确认文件的发布者。",
  "help.result.signature.remedy": "请从发布者处重新获取 Velmora 的安装程序并运行。请安装 Windows 更新。",
  "help.result.busy.cause": "服务正在启动或停止，或依赖它的服务仍在运行。",
  "help.result.busy.remedy": "请等半分钟后重试，或重启电脑。",
  "help.result.slow.cause": "服务没有及时响应 Windows，电脑可能很忙。",
  "help.result.slow.remedy": "请等半分钟后重试，或重启电脑。",
  "help.result.running.cause": "该服务已由其他程序启动。",
  "help.result.running.remedy": "请播放声音。如果没有声音，请重试。",
  "help.result.disabled.cause": "Windows 音频服务或它所需的服务已被禁用。",
  "help.result.disabled.remedy":
    "请以管理员身份打开 Windows 的“服务”，把 Windows Audio 的启动类型设为“自动”并启动。对其“依存关系”选项卡中的服务也这样操作。",
  "help.result.dependency.cause": "此服务所需的另一个服务没有启动：可能已被禁用或损坏，也可能是电脑很忙。",
  "help.result.dependency.remedy":
    "请重启电脑。如果一直如此，请以管理员身份打开 Windows 的“服务”，打开 Windows Audio，查看其“依存关系”选项卡：其中的服务都应正在运行，且没有被禁用。",
  "help.result.uninstalled.cause": "服务缺失、损坏，或即将被删除。",
  "help.result.uninstalled.remedy": "请重启电脑。如果一直如此，请通过“设置 > 系统 > 恢复”修复 Windows。",
  "help.result.stopped.cause": "Windows 音频服务没有运行。",
  "help.result.stopped.remedy": "请选择“重启音频”，或重启电脑。",
  "help.result.crashed.cause": "Windows 音频服务因故障而终止。",
  "help.result.crashed.remedy":
    "请重启电脑。如果添加 Velmora 后立即再次出现，请从设备移除 Velmora，并把报告发给帮助您的人。",
  "help.result.shutdown.cause": "电脑即将关机或重启。",
  "help.result.shutdown.remedy": "请等电脑重启后再试。",
  "help.result.network.cause":
    "无法连接账号服务，或收到的不是预期的答复。原因可能是网络、代理、防火墙，或电脑的日期不正确。",
  "help.result.network.remedy": "请检查浏览器能否打开其他网页，以及电脑的日期和时间。几分钟后再试。",
  "help.result.component.cause": "音效或 Windows 音频的一个组件没有在 Windows 中注册。",
  "help.result.component.remedy": "请重新运行 Velmora 的安装程序，然后重启电脑。",
  "help.result.unsupported.cause": "设备或其驱动程序不支持此操作。",
  "help.result.unsupported.remedy": "请更新驱动程序，或选择其他设备。",
  "help.result.unspecified.cause":
    "Windows 没有说明原因。重启音频时，表示超过了 10 秒；添加时，表示更改没有保留下来。",
  "help.result.unspecified.remedy": "请等半分钟后重试，或重启电脑。",
  "help.result.pending.cause": "音效已开始启动，但没有完成。",
  "help.result.pending.remedy": "请稍等几秒。如果一直如此，请重启 Windows 音频。",
  "help.result.deviceKind.cause": "把麦克风当作播放设备使用，或相反。",
  "help.result.deviceKind.remedy": "请重新选择设备。",
  "help.result.deviceLost.cause": "设备已拔出、关闭，或驱动程序刚刚更新。",
  "help.result.deviceLost.remedy": "请重新连接，或选择其他设备。",
  "help.result.format.cause": "设备与音效没有共同支持的格式。",
  "help.result.format.remedy": "请在 Windows 的设备属性的“高级”中选择其他格式，例如 24 位、48000 Hz。",
  "help.result.exclusive.cause": "有程序以独占模式播放，此时 Windows 不为该设备运行音效。",
  "help.result.exclusive.remedy": "请在该程序中关闭独占或直接输出。",
  "help.result.stream.cause": "Windows 音频正忙，或没有为这个声音做好准备。",
  "help.result.stream.remedy": "请停止播放并重新开始。如果没有改善，请重启 Windows 音频。",
  "help.result.effect.cause": "Windows 与音效对音效的使用方式不一致，这是音效或驱动程序的故障。",
  "help.result.effect.remedy":
    "请先重启 Windows 音频，再重启电脑。如果一直如此，请选择“复制报告”并发给帮助您的人。",

  // ---- a device that refuses changes ----
  "help.refused": "设备拒绝修改时",
  "help.refused.text":
    "请按顺序操作，添加成功后即可停止。这些步骤需要管理员。如果是单位或学校的电脑，请联系其管理员。",
  "help.refused.steps":
    "双击 stop.cmd，再双击 start.cmd，窗口询问是否以管理员身份启动时输入 y。在新打开的页面中重新添加 Velmora。\n关闭设备厂商的声音管理程序后重试。如果安全软件提示拦截了 Velmora，请在其中允许。\n通过 Windows 更新或厂商网站更新设备的驱动程序，重启电脑后重试。\n如果仍被拒绝，说明此设备的设置归系统所有，管理员只能读取。管理员可以按下面的步骤为此设备更改权限。",
  "help.refused.rights": "单个设备的权限",
  "help.refused.rights.text":
    "这只更改谁可以写入此设备的设置。请不要更改其他内容，只授权给管理员，最后收回权限。",
  "help.refused.rights.steps":
    "在“高级”页面打开“诊断”，记下所选设备的 ID。需要的是最后一段，包括大括号。\n以管理员身份打开注册表编辑器（regedit），转到 {path}，打开名称为该段的项，再打开其中的 FxProperties。\n选择“文件 > 导出”，保存所选分支。如果出现问题，可以用此文件恢复设置。\n右键单击 FxProperties，选择“权限 > 高级”，记下列出的内容。\n选择“添加 > 选择主体”，输入 Administrators。在“显示高级权限”中勾选“设置数值”。其他条目保持不变。选择“确定”。\n如果 Windows 不允许更改，请关闭窗口，并联系设备厂商或电脑的管理员。\n在“声音”页面添加 Velmora。\n回到“权限 > 高级”，删除您添加的条目。以后从设备移除 Velmora 时，请重复这些步骤。",

  // ---- removing ----
  "help.remove": "全部移除",
  "help.remove.text":
    "请先从各个设备移除 Velmora，然后再卸载。顺序相反时，设备会保留对已不存在的音效的引用。",
  "help.remove.steps":
    "双击 stop.cmd，再双击 start.cmd，窗口询问是否以管理员身份启动时输入 y。\n在“声音”页面打开“音量和设备”，对每个添加了 Velmora 的设备选择“从此设备移除”；除最后一个外，都选择“移除，稍后重启”。未列出的设备，请连接后同样移除。\n移除最后一个时重启 Windows 音频，或重启电脑。\n结束 Velmora：双击 stop.cmd。不要在重启 Windows 音频时结束。\n在 Windows 的“设置 > 应用 > 安装的应用”中卸载音效。",
  "help.remove.stays": "保留的内容",
  "help.remove.stays.text":
    "预设和录制的文件会保留在各自的文件夹中，直到您删除：{presets} 和 {captures}，除非 Velmora 启动时指定了其他文件夹。注册表中会保留一个空项：{key}。浏览器会保留您上次的设置，直到您清除 127.0.0.1 的网站数据。已下载的文件保留在原处。",
  "help.remove.end": "仅结束 Velmora",
  "help.remove.end.text":
    "双击 stop.cmd；在 Velmora 窗口中按 Ctrl+C 或关闭该窗口，效果相同。这些页面会停止，音效仍在您的设备上。再次启动 Velmora 时，如果音效丢失了设置，页面会提供上次的设置。不要在重启 Windows 音频时结束，否则在电脑重启之前会一直没有声音。",

  // ---- keys ----
  "help.keys": "按键",
  "help.keys.text":
    "在“声音”页面的任何位置都可以按 O 和 C，正在输入或有询问打开时除外。浏览器自己的快捷键仍然有效。",
  "help.keys.key": "按键",
  "help.keys.does": "作用",
  "help.keys.original": "听原声，再按一次返回",
  "help.keys.slot": "在均衡器设置 A 和 B 之间切换",
  "help.keys.undo": "撤消均衡器的更改",
  "help.keys.redo": "恢复更改",
  "help.keys.next": "转到下一个控件；同时按 Shift 转到上一个",
  "help.keys.press": "按下按钮，切换开关",
  "help.keys.enter": "采用字段中的内容",
  "help.keys.escape": "取消拖动，关闭询问，放弃字段中输入的内容",
  "help.keys.dotFrequency": "在圆点上：降低或升高频率；同时按 Shift 步长更大",
  "help.keys.dotGain": "在圆点上：增益升高或降低 0.1 dB；同时按 Shift 为 1 dB",
  "help.keys.dotPage": "在圆点上：增益升高或降低 3 dB",
  "help.keys.dotQ": "在圆点上：使频段变窄或变宽",
  "help.keys.dotFlat": "在圆点上：将频段归零",
  "help.keys.dotType": "在圆点上：下一种类型；同时按 Shift 为上一种",

  // ---- privacy ----
  "help.privacy": "隐私",
  "help.privacy.sends": "Velmora 发送的内容",
  "help.privacy.sends.text":
    "除非 Velmora 启动时指定了账号服务，否则没有任何内容离开本机。页面由 Velmora 自己提供，不从互联网加载任何内容。只有本机上的程序才能访问 Velmora。",
  "help.privacy.account": "使用账号服务时",
  "help.privacy.account.text":
    "Velmora 会发送您登录、注册或填写推荐人时输入的内容，以及本机的一个指纹，它无法还原为本机的标识。登录期间，每隔几分钟会查询会话是否仍然有效；Velmora 结束时也会通知账号服务。地址以 https:// 开头时内容会加密，以 http:// 开头时可能在途中被读取。Velmora 和页面都不保存您的密码。",
  "help.privacy.browser": "浏览器保存的内容",
  "help.privacy.browser.text":
    "您上次的设置、所选预设、各预设的输出微调、用于各设备的预设、这些设备及添加了 Velmora 的设备的名称、是否还需重启音频、录制开始的时间，以及语言。不保存密码和账号。浏览器的历史记录中有链接，Velmora 结束后即失效。",
  "help.privacy.captures": "录制的内容",
  "help.privacy.captures.text":
    "设备上播放的所有声音：音乐、视频，以及通话中对方的声音。只有您开始后才会录制。四个文件保存在本机，直到下一次导出或您删除它们。发给他人之前，请先试听。",
  "help.privacy.report": "报告的内容",
  "help.privacy.report.text":
    "版本、各项数值，以及设备的名称。程序和预设的名称不在其中，用户文件夹内的路径已截去。其中没有密码、链接和账号。Velmora 不会把它发给任何人：它只是被复制，由您决定发给谁。",
};
