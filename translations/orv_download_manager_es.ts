<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="es_ES">
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
        <translation>Trasladado a %1</translation>
    </message>
    <message>
        <source>HTTP %1 %2</source>
        <translation>HTTP %1 %2</translation>
    </message>
    <message numerus="yes">
        <source>%1, again in %n s</source>
        <translation>
            <numerusform>%1, se reintentará en %n&#xa0;s</numerusform>
            <numerusform>%1, se reintentará en %n&#xa0;s</numerusform>
        </translation>
    </message>
    <message>
        <source>%1 asks for a login</source>
        <translation>%1 requiere iniciar sesión</translation>
    </message>
    <message>
        <source>No connection, or no answer in time</source>
        <translation>Sin conexión o sin respuesta a tiempo</translation>
    </message>
    <message>
        <source>Queued</source>
        <translation>En cola</translation>
    </message>
    <message>
        <source>Downloading</source>
        <translation>Descargando</translation>
    </message>
    <message>
        <source>Waiting to retry</source>
        <translation>Reintento</translation>
    </message>
    <message>
        <source>Waiting for login</source>
        <translation>Requiere sesión</translation>
    </message>
    <message>
        <source>Paused</source>
        <translation>En pausa</translation>
    </message>
    <message>
        <source>Done</source>
        <translation>Terminado</translation>
    </message>
    <message>
        <source>Failed</source>
        <translation>Fallido</translation>
    </message>
    <message>
        <source>%1 of %2</source>
        <translation>%1 de %2</translation>
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
        <translation>Archivo</translation>
    </message>
    <message>
        <source>State</source>
        <translation>Estado</translation>
    </message>
    <message>
        <source>Progress</source>
        <translation>Progreso</translation>
    </message>
    <message>
        <source>Size</source>
        <translation>Tamaño</translation>
    </message>
    <message>
        <source>Rate</source>
        <translation>Velocidad</translation>
    </message>
    <message>
        <source>Time left</source>
        <translation>Tiempo restante</translation>
    </message>
    <message>
        <source>Details</source>
        <translation>Detalles</translation>
    </message>
    <message>
        <source>download</source>
        <translation>descarga</translation>
    </message>
</context>
<context>
    <name>downloads::LoginDialog</name>
    <message>
        <source>Login</source>
        <translation>Inicio de sesión</translation>
    </message>
    <message>
        <source>Log in</source>
        <translation>Iniciar sesión</translation>
    </message>
    <message>
        <source>%1 asks for a login.</source>
        <translation>%1 requiere iniciar sesión.</translation>
    </message>
    <message>
        <source>&amp;User name:</source>
        <translation>&amp;Usuario:</translation>
    </message>
    <message>
        <source>&amp;Password:</source>
        <translation>&amp;Contraseña:</translation>
    </message>
    <message>
        <source>Logging in…</source>
        <translation>Iniciando sesión…</translation>
    </message>
</context>
<context>
    <name>downloads::LoginDialogAuthenticator</name>
    <message>
        <source>The login at %1 was cancelled</source>
        <translation>Se canceló el inicio de sesión en %1</translation>
    </message>
    <message>
        <source>The connection is not encrypted: others may read what you type.</source>
        <translation>La conexión no está cifrada: otros podrían leer lo que escriba.</translation>
    </message>
    <message>
        <source>Certificates are not verified: this may be a different server.</source>
        <translation>No se verifican los certificados: podría tratarse de otro servidor.</translation>
    </message>
    <message>
        <source>The server does not accept this name and password.</source>
        <translation>El servidor no acepta este usuario y contraseña.</translation>
    </message>
</context>
<context>
    <name>downloads::MainWindow</name>
    <message>
        <source>Downloads files over HTTP and HTTPS.</source>
        <translation>Descarga archivos por HTTP y HTTPS.</translation>
    </message>
    <message>
        <source>Save files in &lt;path&gt;.</source>
        <translation>Guardar los archivos en &lt;ruta&gt;.</translation>
    </message>
    <message>
        <source>path</source>
        <translation>ruta</translation>
    </message>
    <message>
        <source>Download &lt;count&gt; files at once.</source>
        <translation>Descargar &lt;cantidad&gt; archivos a la vez.</translation>
    </message>
    <message>
        <source>count</source>
        <translation>cantidad</translation>
    </message>
    <message>
        <source>Accept unverified certificates.</source>
        <translation>Aceptar certificados no verificados.</translation>
    </message>
    <message>
        <source>What to download.</source>
        <translation>Qué descargar.</translation>
    </message>
    <message>
        <source>Accept unverified &amp;certificates</source>
        <translation>Aceptar &amp;certificados no verificados</translation>
    </message>
    <message>
        <source>Download manager</source>
        <translation>Gestor de descargas</translation>
    </message>
    <message>
        <source>There is no folder %1</source>
        <translation>No existe la carpeta %1</translation>
    </message>
    <message>
        <source>Not a web address: %1</source>
        <translation>No es una dirección web: %1</translation>
    </message>
    <message>
        <source>Downloads</source>
        <translation>Descargas</translation>
    </message>
    <message>
        <source>Resume</source>
        <translation>Reanudar</translation>
    </message>
    <message>
        <source>Pause</source>
        <translation>Pausar</translation>
    </message>
    <message>
        <source>Remove</source>
        <translation>Quitar</translation>
    </message>
    <message>
        <source>Clear done</source>
        <translation>Quitar terminadas</translation>
    </message>
    <message>
        <source>Paste one or more addresses here</source>
        <translation>Pegue aquí una o varias direcciones</translation>
    </message>
    <message>
        <source>&amp;Add</source>
        <translation>&amp;Añadir</translation>
    </message>
    <message>
        <source>C&amp;hoose…</source>
        <translation>&amp;Elegir…</translation>
    </message>
    <message>
        <source>For test and in-house servers: their identity is not verified.</source>
        <translation>Para servidores de prueba e internos: nadie responde de su identidad.</translation>
    </message>
    <message>
        <source>&amp;Save in:</source>
        <translation>&amp;Guardar en:</translation>
    </message>
    <message>
        <source>A&amp;t once:</source>
        <translation>A la &amp;vez:</translation>
    </message>
    <message>
        <source>Save downloads in</source>
        <translation>Guardar las descargas en</translation>
    </message>
    <message>
        <source>%1 active  ·  %2 queued  ·  %3 done  ·  %4 failed  ·  %5 received  ·  %6</source>
        <translation>%1 activas  ·  %2 en cola  ·  %3 terminadas  ·  %4 fallidas  ·  %5 recibidos  ·  %6</translation>
    </message>
</context>
</TS>
