<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>downloads::DownloadDelegate</name>
    <message>
        <source>%1 %</source>
        <translation>%1&#xa0;%</translation>
    </message>
</context>
<context>
    <name>downloads::DownloadItem</name>
    <message>
        <source>Moved to %1</source>
        <translation>Verschoben nach %1</translation>
    </message>
    <message>
        <source>HTTP %1 %2</source>
        <translation>HTTP %1 %2</translation>
    </message>
    <message numerus="yes">
        <source>%1, again in %n s</source>
        <translation>
            <numerusform>%1, neuer Versuch in %n&#xa0;s</numerusform>
            <numerusform>%1, neuer Versuch in %n&#xa0;s</numerusform>
        </translation>
    </message>
    <message>
        <source>%1 asks for a login</source>
        <translation>%1 verlangt eine Anmeldung</translation>
    </message>
    <message>
        <source>No connection, or no answer in time</source>
        <translation>Keine Verbindung oder keine rechtzeitige Antwort</translation>
    </message>
    <message>
        <source>Queued</source>
        <translation>Eingereiht</translation>
    </message>
    <message>
        <source>Downloading</source>
        <translation>Lädt</translation>
    </message>
    <message>
        <source>Waiting to retry</source>
        <translation>Neuer Versuch</translation>
    </message>
    <message>
        <source>Waiting for login</source>
        <translation>Anmeldung nötig</translation>
    </message>
    <message>
        <source>Paused</source>
        <translation>Angehalten</translation>
    </message>
    <message>
        <source>Done</source>
        <translation>Fertig</translation>
    </message>
    <message>
        <source>Failed</source>
        <translation>Fehlgeschlagen</translation>
    </message>
    <message>
        <source>%1 of %2</source>
        <translation>%1 von %2</translation>
    </message>
    <message>
        <source>%1/s</source>
        <translation>%1/s</translation>
    </message>
    <message>
        <source>%1 s</source>
        <translation>%1&#xa0;s</translation>
    </message>
    <message>
        <source>%1:%2 min</source>
        <translation>%1:%2&#xa0;min</translation>
    </message>
    <message>
        <source>%1:%2 h</source>
        <translation>%1:%2&#xa0;h</translation>
    </message>
</context>
<context>
    <name>downloads::DownloadModel</name>
    <message>
        <source>File</source>
        <translation>Datei</translation>
    </message>
    <message>
        <source>State</source>
        <translation>Status</translation>
    </message>
    <message>
        <source>Progress</source>
        <translation>Fortschritt</translation>
    </message>
    <message>
        <source>Size</source>
        <translation>Größe</translation>
    </message>
    <message>
        <source>Rate</source>
        <translation>Rate</translation>
    </message>
    <message>
        <source>Time left</source>
        <translation>Restzeit</translation>
    </message>
    <message>
        <source>Details</source>
        <translation>Details</translation>
    </message>
    <message>
        <source>download</source>
        <translation>download</translation>
    </message>
</context>
<context>
    <name>downloads::LoginDialog</name>
    <message>
        <source>Login</source>
        <translation>Anmeldung</translation>
    </message>
    <message>
        <source>Log in</source>
        <translation>Anmelden</translation>
    </message>
    <message>
        <source>%1 asks for a login.</source>
        <translation>%1 verlangt eine Anmeldung.</translation>
    </message>
    <message>
        <source>&amp;User name:</source>
        <translation>&amp;Benutzername:</translation>
    </message>
    <message>
        <source>&amp;Password:</source>
        <translation>&amp;Passwort:</translation>
    </message>
    <message>
        <source>Logging in…</source>
        <translation>Anmeldung läuft …</translation>
    </message>
</context>
<context>
    <name>downloads::LoginDialogAuthenticator</name>
    <message>
        <source>The login at %1 was cancelled</source>
        <translation>Die Anmeldung bei %1 wurde abgebrochen</translation>
    </message>
    <message>
        <source>The connection is not encrypted: others may read what you type.</source>
        <translation>Die Verbindung ist nicht verschlüsselt: Andere können Ihre Eingaben mitlesen.</translation>
    </message>
    <message>
        <source>Certificates are not verified: this may be a different server.</source>
        <translation>Zertifikate werden nicht geprüft: Die Gegenstelle könnte jemand anderes sein.</translation>
    </message>
    <message>
        <source>The server does not accept this name and password.</source>
        <translation>Der Server akzeptiert diesen Namen und dieses Passwort nicht.</translation>
    </message>
</context>
<context>
    <name>downloads::MainWindow</name>
    <message>
        <source>Downloads files over HTTP and HTTPS.</source>
        <translation>Lädt Dateien über HTTP und HTTPS herunter.</translation>
    </message>
    <message>
        <source>Save files in &lt;path&gt;.</source>
        <translation>Dateien in &lt;Pfad&gt; speichern.</translation>
    </message>
    <message>
        <source>path</source>
        <translation>Pfad</translation>
    </message>
    <message>
        <source>Download &lt;count&gt; files at once.</source>
        <translation>&lt;Anzahl&gt; Dateien gleichzeitig herunterladen.</translation>
    </message>
    <message>
        <source>count</source>
        <translation>Anzahl</translation>
    </message>
    <message>
        <source>Accept unverified certificates.</source>
        <translation>Ungeprüfte Zertifikate akzeptieren.</translation>
    </message>
    <message>
        <source>What to download.</source>
        <translation>Was heruntergeladen werden soll.</translation>
    </message>
    <message>
        <source>Accept unverified &amp;certificates</source>
        <translation>Ungeprüfte &amp;Zertifikate akzeptieren</translation>
    </message>
    <message>
        <source>Download manager</source>
        <translation>Download-Manager</translation>
    </message>
    <message>
        <source>There is no folder %1</source>
        <translation>Den Ordner %1 gibt es nicht</translation>
    </message>
    <message>
        <source>Not a web address: %1</source>
        <translation>Keine Webadresse: %1</translation>
    </message>
    <message>
        <source>Downloads</source>
        <translation>Downloads</translation>
    </message>
    <message>
        <source>Resume</source>
        <translation>Fortsetzen</translation>
    </message>
    <message>
        <source>Pause</source>
        <translation>Anhalten</translation>
    </message>
    <message>
        <source>Remove</source>
        <translation>Entfernen</translation>
    </message>
    <message>
        <source>Clear done</source>
        <translation>Fertige entfernen</translation>
    </message>
    <message>
        <source>Paste one or more addresses here</source>
        <translation>Eine oder mehrere Adressen hier einfügen</translation>
    </message>
    <message>
        <source>&amp;Add</source>
        <translation>&amp;Hinzufügen</translation>
    </message>
    <message>
        <source>C&amp;hoose…</source>
        <translation>&amp;Auswählen …</translation>
    </message>
    <message>
        <source>For test and in-house servers: their identity is not verified.</source>
        <translation>Für Test- und interne Server: Niemand bürgt für ihre Identität.</translation>
    </message>
    <message>
        <source>&amp;Save in:</source>
        <translation>&amp;Speichern in:</translation>
    </message>
    <message>
        <source>A&amp;t once:</source>
        <translation>&amp;Gleichzeitig:</translation>
    </message>
    <message>
        <source>Save downloads in</source>
        <translation>Downloads speichern in</translation>
    </message>
    <message>
        <source>%1 active  ·  %2 queued  ·  %3 done  ·  %4 failed  ·  %5 received  ·  %6</source>
        <translation>%1 aktiv  ·  %2 eingereiht  ·  %3 fertig  ·  %4 fehlgeschlagen  ·  %5 empfangen  ·  %6</translation>
    </message>
</context>
</TS>
