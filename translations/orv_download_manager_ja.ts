<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ja_JP">
<context>
    <name>downloads::DownloadDelegate</name>
    <message>
        <source>%1 %</source>
        <translation>%1%</translation>
    </message>
</context>
<context>
    <name>downloads::DownloadItem</name>
    <message>
        <source>Moved to %1</source>
        <translation>%1 に移動しました</translation>
    </message>
    <message>
        <source>HTTP %1 %2</source>
        <translation>HTTP %1 %2</translation>
    </message>
    <message numerus="yes">
        <source>%1, again in %n s</source>
        <translation>
            <numerusform>%1、%n 秒後に再試行します</numerusform>
        </translation>
    </message>
    <message>
        <source>%1 asks for a login</source>
        <translation>%1 がログインを求めています</translation>
    </message>
    <message>
        <source>No connection, or no answer in time</source>
        <translation>接続できないか、時間内に応答がありません</translation>
    </message>
    <message>
        <source>Queued</source>
        <translation>待機中</translation>
    </message>
    <message>
        <source>Downloading</source>
        <translation>ダウンロード中</translation>
    </message>
    <message>
        <source>Waiting to retry</source>
        <translation>再試行待ち</translation>
    </message>
    <message>
        <source>Waiting for login</source>
        <translation>ログイン待ち</translation>
    </message>
    <message>
        <source>Paused</source>
        <translation>一時停止中</translation>
    </message>
    <message>
        <source>Done</source>
        <translation>完了</translation>
    </message>
    <message>
        <source>Failed</source>
        <translation>失敗</translation>
    </message>
    <message>
        <source>%1 of %2</source>
        <translation>%1 / %2</translation>
    </message>
    <message>
        <source>%1/s</source>
        <translation>%1/秒</translation>
    </message>
    <message>
        <source>%1 s</source>
        <translation>%1 秒</translation>
    </message>
    <message>
        <source>%1:%2 min</source>
        <translation>%1:%2 分</translation>
    </message>
    <message>
        <source>%1:%2 h</source>
        <translation>%1:%2 時間</translation>
    </message>
</context>
<context>
    <name>downloads::DownloadModel</name>
    <message>
        <source>File</source>
        <translation>ファイル</translation>
    </message>
    <message>
        <source>State</source>
        <translation>状態</translation>
    </message>
    <message>
        <source>Progress</source>
        <translation>進行状況</translation>
    </message>
    <message>
        <source>Size</source>
        <translation>サイズ</translation>
    </message>
    <message>
        <source>Rate</source>
        <translation>速度</translation>
    </message>
    <message>
        <source>Time left</source>
        <translation>残り時間</translation>
    </message>
    <message>
        <source>Details</source>
        <translation>詳細</translation>
    </message>
    <message>
        <source>download</source>
        <translation>ダウンロード</translation>
    </message>
</context>
<context>
    <name>downloads::LoginDialog</name>
    <message>
        <source>Login</source>
        <translation>ログイン</translation>
    </message>
    <message>
        <source>Log in</source>
        <translation>ログイン</translation>
    </message>
    <message>
        <source>%1 asks for a login.</source>
        <translation>%1 がログインを求めています。</translation>
    </message>
    <message>
        <source>&amp;User name:</source>
        <translation>ユーザー名(&amp;U):</translation>
    </message>
    <message>
        <source>&amp;Password:</source>
        <translation>パスワード(&amp;P):</translation>
    </message>
    <message>
        <source>Logging in…</source>
        <translation>ログインしています…</translation>
    </message>
</context>
<context>
    <name>downloads::LoginDialogAuthenticator</name>
    <message>
        <source>The login at %1 was cancelled</source>
        <translation>%1 へのログインはキャンセルされました</translation>
    </message>
    <message>
        <source>The connection is not encrypted: others may read what you type.</source>
        <translation>接続は暗号化されていません。入力内容が第三者に読み取られるおそれがあります。</translation>
    </message>
    <message>
        <source>Certificates are not verified: this may be a different server.</source>
        <translation>証明書は検証されません。別のサーバーである可能性があります。</translation>
    </message>
    <message>
        <source>The server does not accept this name and password.</source>
        <translation>このユーザー名とパスワードはサーバーに受け付けられませんでした。</translation>
    </message>
</context>
<context>
    <name>downloads::MainWindow</name>
    <message>
        <source>Downloads files over HTTP and HTTPS.</source>
        <translation>HTTP および HTTPS でファイルをダウンロードします。</translation>
    </message>
    <message>
        <source>Save files in &lt;path&gt;.</source>
        <translation>&lt;パス&gt; にファイルを保存します。</translation>
    </message>
    <message>
        <source>path</source>
        <translation>パス</translation>
    </message>
    <message>
        <source>Download &lt;count&gt; files at once.</source>
        <translation>&lt;数&gt; 個のファイルを同時にダウンロードします。</translation>
    </message>
    <message>
        <source>count</source>
        <translation>数</translation>
    </message>
    <message>
        <source>Accept unverified certificates.</source>
        <translation>未検証の証明書を許可します。</translation>
    </message>
    <message>
        <source>What to download.</source>
        <translation>ダウンロードするもの。</translation>
    </message>
    <message>
        <source>Accept unverified &amp;certificates</source>
        <translation>未検証の証明書を許可する(&amp;C)</translation>
    </message>
    <message>
        <source>Download manager</source>
        <translation>ダウンロードマネージャー</translation>
    </message>
    <message>
        <source>There is no folder %1</source>
        <translation>フォルダー %1 がありません</translation>
    </message>
    <message>
        <source>Not a web address: %1</source>
        <translation>Web アドレスではありません: %1</translation>
    </message>
    <message>
        <source>Downloads</source>
        <translation>ダウンロード</translation>
    </message>
    <message>
        <source>Resume</source>
        <translation>再開</translation>
    </message>
    <message>
        <source>Pause</source>
        <translation>一時停止</translation>
    </message>
    <message>
        <source>Remove</source>
        <translation>削除</translation>
    </message>
    <message>
        <source>Clear done</source>
        <translation>完了分を消去</translation>
    </message>
    <message>
        <source>Paste one or more addresses here</source>
        <translation>1 つ以上のアドレスをここに貼り付けてください</translation>
    </message>
    <message>
        <source>&amp;Add</source>
        <translation>追加(&amp;A)</translation>
    </message>
    <message>
        <source>C&amp;hoose…</source>
        <translation>選択(&amp;H)…</translation>
    </message>
    <message>
        <source>For test and in-house servers: their identity is not verified.</source>
        <translation>テスト用および社内サーバー向け: 身元は誰にも保証されません。</translation>
    </message>
    <message>
        <source>&amp;Save in:</source>
        <translation>保存先(&amp;S):</translation>
    </message>
    <message>
        <source>A&amp;t once:</source>
        <translation>同時実行数(&amp;T):</translation>
    </message>
    <message>
        <source>Save downloads in</source>
        <translation>ダウンロードの保存先</translation>
    </message>
    <message>
        <source>%1 active  ·  %2 queued  ·  %3 done  ·  %4 failed  ·  %5 received  ·  %6</source>
        <translation>実行中 %1  ·  待機中 %2  ·  完了 %3  ·  失敗 %4  ·  受信 %5  ·  %6</translation>
    </message>
</context>
</TS>
