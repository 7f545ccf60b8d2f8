<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ja_JP">
<context>
    <name>QObject</name>
    <message>
        <source>Your session timed-out. Please log in again.</source>
        <translation>セッションがタイムアウトしました。もう一度ログインしてください。</translation>
    </message>
    <message>
        <source>HTTP connection error: %1.</source>
        <translation>HTTP 接続エラー: %1。</translation>
    </message>
    <message>
        <source>Network connection error: %1.</source>
        <translation>ネットワーク接続エラー: %1。</translation>
    </message>
    <message>
        <source>Unknown error</source>
        <translation>不明なエラー</translation>
    </message>
</context>
<context>
    <name>orv::BaseTask</name>
    <message>
        <source>Canceled</source>
        <translation>キャンセルされました</translation>
    </message>
</context>
<context>
    <name>orv::BearerLogin</name>
    <message>
        <source>The server&apos;s answer contains no token</source>
        <translation>サーバーの応答にトークンが含まれていません</translation>
    </message>
    <message>
        <source>There are no credentials to log in with</source>
        <translation>ログインに使用する認証情報がありません</translation>
    </message>
    <message>
        <source>The server refused the credentials</source>
        <translation>サーバーが認証情報を拒否しました</translation>
    </message>
    <message>
        <source>The login failed: %1</source>
        <translation>ログインに失敗しました: %1</translation>
    </message>
    <message>
        <source>The token contains characters that cannot be sent</source>
        <translation>トークンに送信できない文字が含まれています</translation>
    </message>
    <message>
        <source>The login was canceled</source>
        <translation>ログインがキャンセルされました</translation>
    </message>
</context>
<context>
    <name>orv::FileDownloadOutput</name>
    <message>
        <source>Cannot open file %1 for writing</source>
        <translation>ファイル %1 を書き込み用に開けません</translation>
    </message>
    <message>
        <source>Error while writing to the file: </source>
        <translation>ファイルへの書き込み中にエラーが発生しました: </translation>
    </message>
    <message>
        <source>the file is not open</source>
        <translation>ファイルが開かれていません</translation>
    </message>
</context>
<context>
    <name>orv::FileDownloadTask</name>
    <message>
        <source>Could not determine destination filename</source>
        <translation>保存先のファイル名を特定できませんでした</translation>
    </message>
    <message>
        <source>Could not open destination file</source>
        <translation>保存先のファイルを開けませんでした</translation>
    </message>
    <message>
        <source>Could not write downloaded file</source>
        <translation>ダウンロードしたファイルを書き込めませんでした</translation>
    </message>
    <message>
        <source>only %1 of %2 bytes are left</source>
        <translation>%2 バイトのうち %1 バイトしか残っていません</translation>
    </message>
    <message>
        <source>No file was saved because the download did not succeed</source>
        <translation>ダウンロードが成功しなかったため、ファイルは保存されませんでした</translation>
    </message>
</context>
<context>
    <name>orv::LoopbackProxy</name>
    <message>
        <source>The loopback proxy is listening already</source>
        <translation>ループバックプロキシはすでに接続を待ち受けています</translation>
    </message>
</context>
<context>
    <name>orv::LoopbackServer</name>
    <message>
        <source>The loopback server is listening already</source>
        <translation>ループバックサーバーはすでに接続を待ち受けています</translation>
    </message>
    <message>
        <source>Qt has no working TLS here</source>
        <translation>この環境の Qt では TLS を利用できません</translation>
    </message>
</context>
<context>
    <name>orv::MemoryDownloadOutput</name>
    <message>
        <source>Memory error</source>
        <translation>メモリエラー</translation>
    </message>
</context>
<context>
    <name>orv::NetworkTask</name>
    <message>
        <source>Authentication failed</source>
        <translation>認証に失敗しました</translation>
    </message>
    <message>
        <source>Network error</source>
        <translation>ネットワークエラー</translation>
    </message>
    <message>
        <source>The request took too long</source>
        <translation>リクエストに時間がかかりすぎました</translation>
    </message>
    <message>
        <source>Network timeout</source>
        <translation>ネットワークがタイムアウトしました</translation>
    </message>
    <message>
        <source>A task &quot;%1&quot; failed, error message = &quot;%2&quot;.</source>
        <translation>タスク「%1」が失敗しました。エラーメッセージ:「%2」</translation>
    </message>
    <message>
        <source>Connection closed</source>
        <translation>接続が閉じられました</translation>
    </message>
    <message>
        <source>The value of the header field &quot;%1&quot; contains a control character</source>
        <translation>ヘッダーフィールド「%1」の値に制御文字が含まれています</translation>
    </message>
    <message>
        <source>&quot;%1&quot; is not a valid name of a header field</source>
        <translation>「%1」はヘッダーフィールドの有効な名前ではありません</translation>
    </message>
    <message>
        <source>relative path must start with &apos;/&apos;</source>
        <translation>相対パスは「/」で始まる必要があります</translation>
    </message>
</context>
<context>
    <name>orv::Task</name>
    <message>
        <source>Unknown exception</source>
        <translation>不明な例外</translation>
    </message>
</context>
</TS>
