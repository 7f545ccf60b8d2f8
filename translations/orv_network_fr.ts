<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr_FR">
<context>
    <name>QObject</name>
    <message>
        <source>Your session timed-out. Please log in again.</source>
        <translation>Votre session a expiré. Veuillez vous reconnecter.</translation>
    </message>
    <message>
        <source>HTTP connection error: %1.</source>
        <translation>Erreur de connexion HTTP&#xa0;: %1.</translation>
    </message>
    <message>
        <source>Network connection error: %1.</source>
        <translation>Erreur de connexion réseau&#xa0;: %1.</translation>
    </message>
    <message>
        <source>Unknown error</source>
        <translation>Erreur inconnue</translation>
    </message>
</context>
<context>
    <name>orv::BaseTask</name>
    <message>
        <source>Canceled</source>
        <translation>Annulé</translation>
    </message>
</context>
<context>
    <name>orv::BearerLogin</name>
    <message>
        <source>The server&apos;s answer contains no token</source>
        <translation>La réponse du serveur ne contient pas de jeton</translation>
    </message>
    <message>
        <source>There are no credentials to log in with</source>
        <translation>Il n’y a pas d’identifiants pour se connecter</translation>
    </message>
    <message>
        <source>The server refused the credentials</source>
        <translation>Le serveur a refusé les identifiants</translation>
    </message>
    <message>
        <source>The login failed: %1</source>
        <translation>La connexion a échoué : %1</translation>
    </message>
    <message>
        <source>The token contains characters that cannot be sent</source>
        <translation>Le jeton contient des caractères qui ne peuvent pas être envoyés</translation>
    </message>
    <message>
        <source>The login was canceled</source>
        <translation>La connexion a été annulée</translation>
    </message>
</context>
<context>
    <name>orv::FileDownloadOutput</name>
    <message>
        <source>Cannot open file %1 for writing</source>
        <translation>Impossible d’ouvrir le fichier %1 en écriture</translation>
    </message>
    <message>
        <source>Error while writing to the file: </source>
        <translation>Erreur lors de l’écriture dans le fichier&#xa0;: </translation>
    </message>
    <message>
        <source>the file is not open</source>
        <translation>le fichier n’est pas ouvert</translation>
    </message>
</context>
<context>
    <name>orv::FileDownloadTask</name>
    <message>
        <source>Could not determine destination filename</source>
        <translation>Impossible de déterminer le nom du fichier de destination</translation>
    </message>
    <message>
        <source>Could not open destination file</source>
        <translation>Impossible d’ouvrir le fichier de destination</translation>
    </message>
    <message>
        <source>Could not write downloaded file</source>
        <translation>Impossible d’enregistrer le fichier téléchargé</translation>
    </message>
    <message>
        <source>only %1 of %2 bytes are left</source>
        <translation>il ne reste que %1 octets sur %2</translation>
    </message>
    <message>
        <source>No file was saved because the download did not succeed</source>
        <translation>Aucun fichier n’a été enregistré, car le téléchargement n’a pas abouti</translation>
    </message>
</context>
<context>
    <name>orv::LoopbackProxy</name>
    <message>
        <source>The loopback proxy is listening already</source>
        <translation>Le proxy de bouclage est déjà à l’écoute</translation>
    </message>
</context>
<context>
    <name>orv::LoopbackServer</name>
    <message>
        <source>The loopback server is listening already</source>
        <translation>Le serveur de bouclage est déjà à l’écoute</translation>
    </message>
    <message>
        <source>Qt has no working TLS here</source>
        <translation>Qt ne dispose pas de TLS fonctionnel sur ce système</translation>
    </message>
</context>
<context>
    <name>orv::MemoryDownloadOutput</name>
    <message>
        <source>Memory error</source>
        <translation>Erreur de mémoire</translation>
    </message>
</context>
<context>
    <name>orv::NetworkTask</name>
    <message>
        <source>Authentication failed</source>
        <translation>Échec de l’authentification</translation>
    </message>
    <message>
        <source>Network error</source>
        <translation>Erreur réseau</translation>
    </message>
    <message>
        <source>The request took too long</source>
        <translation>La requête a pris trop de temps</translation>
    </message>
    <message>
        <source>Network timeout</source>
        <translation>Délai d’attente du réseau dépassé</translation>
    </message>
    <message>
        <source>A task &quot;%1&quot; failed, error message = &quot;%2&quot;.</source>
        <translation>La tâche «&#xa0;%1&#xa0;» a échoué, message d’erreur&#xa0;: «&#xa0;%2&#xa0;».</translation>
    </message>
    <message>
        <source>Connection closed</source>
        <translation>Connexion fermée</translation>
    </message>
    <message>
        <source>The value of the header field &quot;%1&quot; contains a control character</source>
        <translation>La valeur du champ d’en-tête «&#xa0;%1&#xa0;» contient un caractère de contrôle</translation>
    </message>
    <message>
        <source>&quot;%1&quot; is not a valid name of a header field</source>
        <translation>«&#xa0;%1&#xa0;» n’est pas un nom valide de champ d’en-tête</translation>
    </message>
    <message>
        <source>relative path must start with &apos;/&apos;</source>
        <translation>le chemin relatif doit commencer par «&#xa0;/&#xa0;»</translation>
    </message>
</context>
<context>
    <name>orv::Task</name>
    <message>
        <source>Unknown exception</source>
        <translation>Exception inconnue</translation>
    </message>
</context>
</TS>
