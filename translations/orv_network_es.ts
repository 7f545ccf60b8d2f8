<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="es_ES">
<context>
    <name>QObject</name>
    <message>
        <source>Your session timed-out. Please log in again.</source>
        <translation>Su sesión ha caducado. Inicie sesión de nuevo.</translation>
    </message>
    <message>
        <source>HTTP connection error: %1.</source>
        <translation>Error de conexión HTTP: %1.</translation>
    </message>
    <message>
        <source>Network connection error: %1.</source>
        <translation>Error de conexión de red: %1.</translation>
    </message>
    <message>
        <source>Unknown error</source>
        <translation>Error desconocido</translation>
    </message>
</context>
<context>
    <name>orv::BaseTask</name>
    <message>
        <source>Canceled</source>
        <translation>Cancelado</translation>
    </message>
</context>
<context>
    <name>orv::BearerLogin</name>
    <message>
        <source>The server&apos;s answer contains no token</source>
        <translation>La respuesta del servidor no contiene ningún token</translation>
    </message>
    <message>
        <source>There are no credentials to log in with</source>
        <translation>No hay credenciales para iniciar sesión</translation>
    </message>
    <message>
        <source>The server refused the credentials</source>
        <translation>El servidor ha rechazado las credenciales</translation>
    </message>
    <message>
        <source>The login failed: %1</source>
        <translation>Error al iniciar sesión: %1</translation>
    </message>
    <message>
        <source>The token contains characters that cannot be sent</source>
        <translation>El token contiene caracteres que no se pueden enviar</translation>
    </message>
    <message>
        <source>The login was canceled</source>
        <translation>Se ha cancelado el inicio de sesión</translation>
    </message>
</context>
<context>
    <name>orv::FileDownloadOutput</name>
    <message>
        <source>Cannot open file %1 for writing</source>
        <translation>No se puede abrir el archivo %1 para escritura</translation>
    </message>
    <message>
        <source>Error while writing to the file: </source>
        <translation>Error al escribir en el archivo: </translation>
    </message>
    <message>
        <source>the file is not open</source>
        <translation>el archivo no está abierto</translation>
    </message>
</context>
<context>
    <name>orv::FileDownloadTask</name>
    <message>
        <source>Could not determine destination filename</source>
        <translation>No se pudo determinar el nombre del archivo de destino</translation>
    </message>
    <message>
        <source>Could not open destination file</source>
        <translation>No se pudo abrir el archivo de destino</translation>
    </message>
    <message>
        <source>Could not write downloaded file</source>
        <translation>No se pudo guardar el archivo descargado</translation>
    </message>
    <message>
        <source>only %1 of %2 bytes are left</source>
        <translation>solo quedan %1 de %2 bytes</translation>
    </message>
    <message>
        <source>No file was saved because the download did not succeed</source>
        <translation>No se guardó ningún archivo porque la descarga no se completó correctamente</translation>
    </message>
</context>
<context>
    <name>orv::LoopbackProxy</name>
    <message>
        <source>The loopback proxy is listening already</source>
        <translation>El proxy de bucle local ya está a la escucha</translation>
    </message>
</context>
<context>
    <name>orv::LoopbackServer</name>
    <message>
        <source>The loopback server is listening already</source>
        <translation>El servidor de bucle local ya está a la escucha</translation>
    </message>
    <message>
        <source>Qt has no working TLS here</source>
        <translation>Qt no dispone de TLS operativo en este sistema</translation>
    </message>
</context>
<context>
    <name>orv::MemoryDownloadOutput</name>
    <message>
        <source>Memory error</source>
        <translation>Error de memoria</translation>
    </message>
</context>
<context>
    <name>orv::NetworkTask</name>
    <message>
        <source>Authentication failed</source>
        <translation>Error de autenticación</translation>
    </message>
    <message>
        <source>Network error</source>
        <translation>Error de red</translation>
    </message>
    <message>
        <source>The request took too long</source>
        <translation>La solicitud ha tardado demasiado</translation>
    </message>
    <message>
        <source>Network timeout</source>
        <translation>Tiempo de espera de red agotado</translation>
    </message>
    <message>
        <source>A task &quot;%1&quot; failed, error message = &quot;%2&quot;.</source>
        <translation>La tarea «%1» ha fallado, mensaje de error: «%2».</translation>
    </message>
    <message>
        <source>Connection closed</source>
        <translation>Conexión cerrada</translation>
    </message>
    <message>
        <source>The value of the header field &quot;%1&quot; contains a control character</source>
        <translation>El valor del campo de cabecera «%1» contiene un carácter de control</translation>
    </message>
    <message>
        <source>&quot;%1&quot; is not a valid name of a header field</source>
        <translation>«%1» no es un nombre válido de un campo de cabecera</translation>
    </message>
    <message>
        <source>relative path must start with &apos;/&apos;</source>
        <translation>la ruta relativa debe empezar por «/»</translation>
    </message>
</context>
<context>
    <name>orv::Task</name>
    <message>
        <source>Unknown exception</source>
        <translation>Excepción desconocida</translation>
    </message>
</context>
</TS>
