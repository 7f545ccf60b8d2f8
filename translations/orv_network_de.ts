<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>QObject</name>
    <message>
        <source>Your session timed-out. Please log in again.</source>
        <translation>Ihre Sitzung ist abgelaufen. Bitte melden Sie sich erneut an.</translation>
    </message>
    <message>
        <source>HTTP connection error: %1.</source>
        <translation>HTTP-Verbindungsfehler: %1.</translation>
    </message>
    <message>
        <source>Network connection error: %1.</source>
        <translation>Netzwerkverbindungsfehler: %1.</translation>
    </message>
    <message>
        <source>Unknown error</source>
        <translation>Unbekannter Fehler</translation>
    </message>
</context>
<context>
    <name>orv::BaseTask</name>
    <message>
        <source>Canceled</source>
        <translation>Abgebrochen</translation>
    </message>
</context>
<context>
    <name>orv::BearerLogin</name>
    <message>
        <source>The server&apos;s answer contains no token</source>
        <translation>Die Antwort des Servers enthält kein Token</translation>
    </message>
    <message>
        <source>There are no credentials to log in with</source>
        <translation>Es gibt keine Zugangsdaten für die Anmeldung</translation>
    </message>
    <message>
        <source>The server refused the credentials</source>
        <translation>Der Server hat die Zugangsdaten abgelehnt</translation>
    </message>
    <message>
        <source>The login failed: %1</source>
        <translation>Die Anmeldung ist fehlgeschlagen: %1</translation>
    </message>
    <message>
        <source>The token contains characters that cannot be sent</source>
        <translation>Das Token enthält Zeichen, die nicht gesendet werden können</translation>
    </message>
    <message>
        <source>The login was canceled</source>
        <translation>Die Anmeldung wurde abgebrochen</translation>
    </message>
</context>
<context>
    <name>orv::FileDownloadOutput</name>
    <message>
        <source>Cannot open file %1 for writing</source>
        <translation>Die Datei %1 kann nicht zum Schreiben geöffnet werden</translation>
    </message>
    <message>
        <source>Error while writing to the file: </source>
        <translation>Fehler beim Schreiben in die Datei: </translation>
    </message>
    <message>
        <source>the file is not open</source>
        <translation>die Datei ist nicht geöffnet</translation>
    </message>
</context>
<context>
    <name>orv::FileDownloadTask</name>
    <message>
        <source>Could not determine destination filename</source>
        <translation>Der Name der Zieldatei konnte nicht ermittelt werden</translation>
    </message>
    <message>
        <source>Could not open destination file</source>
        <translation>Die Zieldatei konnte nicht geöffnet werden</translation>
    </message>
    <message>
        <source>Could not write downloaded file</source>
        <translation>Die heruntergeladene Datei konnte nicht geschrieben werden</translation>
    </message>
    <message>
        <source>only %1 of %2 bytes are left</source>
        <translation>nur %1 von %2 Byte sind noch vorhanden</translation>
    </message>
    <message>
        <source>No file was saved because the download did not succeed</source>
        <translation>Es wurde keine Datei gespeichert, weil der Download nicht erfolgreich war</translation>
    </message>
</context>
<context>
    <name>orv::LoopbackProxy</name>
    <message>
        <source>The loopback proxy is listening already</source>
        <translation>Der Loopback-Proxy nimmt bereits Verbindungen an</translation>
    </message>
</context>
<context>
    <name>orv::LoopbackServer</name>
    <message>
        <source>The loopback server is listening already</source>
        <translation>Der Loopback-Server nimmt bereits Verbindungen an</translation>
    </message>
    <message>
        <source>Qt has no working TLS here</source>
        <translation>Qt bietet auf diesem System kein funktionierendes TLS</translation>
    </message>
</context>
<context>
    <name>orv::MemoryDownloadOutput</name>
    <message>
        <source>Memory error</source>
        <translation>Speicherfehler</translation>
    </message>
</context>
<context>
    <name>orv::NetworkTask</name>
    <message>
        <source>Authentication failed</source>
        <translation>Anmeldung fehlgeschlagen</translation>
    </message>
    <message>
        <source>Network error</source>
        <translation>Netzwerkfehler</translation>
    </message>
    <message>
        <source>The request took too long</source>
        <translation>Die Anfrage hat zu lange gedauert</translation>
    </message>
    <message>
        <source>Network timeout</source>
        <translation>Zeitüberschreitung im Netzwerk</translation>
    </message>
    <message>
        <source>A task &quot;%1&quot; failed, error message = &quot;%2&quot;.</source>
        <translation>Die Aufgabe „%1“ ist fehlgeschlagen, Fehlermeldung: „%2“.</translation>
    </message>
    <message>
        <source>Connection closed</source>
        <translation>Verbindung geschlossen</translation>
    </message>
    <message>
        <source>The value of the header field &quot;%1&quot; contains a control character</source>
        <translation>Der Wert des Header-Felds „%1“ enthält ein Steuerzeichen</translation>
    </message>
    <message>
        <source>&quot;%1&quot; is not a valid name of a header field</source>
        <translation>„%1“ ist kein gültiger Name eines Header-Felds</translation>
    </message>
    <message>
        <source>relative path must start with &apos;/&apos;</source>
        <translation>der relative Pfad muss mit „/“ beginnen</translation>
    </message>
</context>
<context>
    <name>orv::Task</name>
    <message>
        <source>Unknown exception</source>
        <translation>Unbekannte Ausnahme</translation>
    </message>
</context>
</TS>
