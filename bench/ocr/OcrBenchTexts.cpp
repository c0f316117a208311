#include "OcrBenchTexts.h"

namespace {

const QStringList kEnglish = {
    QStringLiteral("Open Recent Files"),
    QStringLiteral("Save changes to the document before closing?"),
    QStringLiteral("Your changes will be lost if you don't save them."),
    QStringLiteral("Show hidden files and folders"),
    QStringLiteral("Download complete: 3 files, 24.6 MB"),
    QStringLiteral("Check for updates automatically"),
    QStringLiteral("The connection to the server was lost."),
    QStringLiteral("Preferences"),
    QStringLiteral("Sign in with your account to continue"),
    QStringLiteral("Last modified on March 14, 2024 at 09:41"),
    QStringLiteral("Network settings have been updated successfully."),
    QStringLiteral("Are you sure you want to delete this item?"),
    QStringLiteral("Press Enter to translate again"),
    QStringLiteral("Battery: 87% remaining"),
    QStringLiteral("Quickly search your emails, contacts and calendar"),
    QStringLiteral("File not found. Please check the path and try again."),
    QStringLiteral("Meeting notes for the weekly review"),
    QStringLiteral("Enable dark mode"),
    QStringLiteral("Export as PDF..."),
    QStringLiteral("Undo typing"),
};

const QStringList kChinese = {
    QStringLiteral("打开最近使用的文件"),
    QStringLiteral("关闭前是否保存对文档的更改？"),
    QStringLiteral("如果不保存，您的更改将会丢失。"),
    QStringLiteral("显示隐藏的文件和文件夹"),
    QStringLiteral("自动检查更新"),
    QStringLiteral("与服务器的连接已断开。"),
    QStringLiteral("偏好设置"),
    QStringLiteral("登录您的账户以继续"),
    QStringLiteral("网络设置已成功更新。"),
    QStringLiteral("确定要删除此项目吗？"),
    QStringLiteral("按回车键重新翻译"),
    QStringLiteral("快速搜索邮件、联系人和日历"),
    QStringLiteral("找不到文件，请检查路径后重试。"),
    QStringLiteral("每周例会的会议记录"),
    QStringLiteral("启用深色模式"),
    QStringLiteral("今天的天气很好，我们去公园散步吧。"),
    QStringLiteral("翻译结果将显示在这个窗口中"),
    QStringLiteral("请选择要识别的屏幕区域"),
};

const QStringList kMixed = {
    QStringLiteral("下载完成：3 个文件，共 24.6 MB"),
    QStringLiteral("使用 Python 3.11 运行脚本"),
    QStringLiteral("按 Ctrl+C 复制选中的文本"),
    QStringLiteral("已连接到 Wi-Fi 网络 Office-5G"),
    QStringLiteral("电池剩余 87%"),
    QStringLiteral("在 GitHub 上查看源代码"),
    QStringLiteral("支持 OpenAI 兼容的 API 服务"),
    QStringLiteral("版本 0.2.7 已发布"),
    QStringLiteral("请在 Settings 中启用 Dark Mode"),
    QStringLiteral("共有 128 条搜索结果"),
};

const QStringList kCode = {
    QStringLiteral("int main(int argc, char *argv[])"),
    QStringLiteral("for (auto &item : items) {"),
    QStringLiteral("return value.isEmpty() ? 0 : 1;"),
    QStringLiteral("def parse(path: str) -> dict:"),
    QStringLiteral("import numpy as np"),
    QStringLiteral("git commit -m \"Fix the parser\""),
    QStringLiteral("const x = await fetch(url);"),
    QStringLiteral("if err != nil { return err }"),
    QStringLiteral("SELECT name FROM users WHERE id = 42;"),
    QStringLiteral("std::vector<int> v{1, 2, 3};"),
    QStringLiteral("echo $HOME | tr a-z A-Z"),
    QStringLiteral("print(f\"total: {count}\")"),
};

} // namespace

const QStringList &vontrelBenchOcrTexts(const QString &language)
{
    if (language == QLatin1String("zh"))
        return kChinese;
    if (language == QLatin1String("mixed"))
        return kMixed;
    if (language == QLatin1String("code"))
        return kCode;
    return kEnglish;
}
