<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr_FR">
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
        <translation>Déplacé vers %1</translation>
    </message>
    <message>
        <source>HTTP %1 %2</source>
        <translation>HTTP %1 %2</translation>
    </message>
    <message numerus="yes">
        <source>%1, again in %n s</source>
        <translation>
            <numerusform>%1, nouvel essai dans %n&#xa0;s</numerusform>
            <numerusform>%1, nouvel essai dans %n&#xa0;s</numerusform>
        </translation>
    </message>
    <message>
        <source>%1 asks for a login</source>
        <translation>%1 demande une connexion</translation>
    </message>
    <message>
        <source>No connection, or no answer in time</source>
        <translation>Pas de connexion ou pas de réponse à temps</translation>
    </message>
    <message>
        <source>Queued</source>
        <translation>En attente</translation>
    </message>
    <message>
        <source>Downloading</source>
        <translation>Téléchargement</translation>
    </message>
    <message>
        <source>Waiting to retry</source>
        <translation>Nouvel essai</translation>
    </message>
    <message>
        <source>Waiting for login</source>
        <translation>Connexion requise</translation>
    </message>
    <message>
        <source>Paused</source>
        <translation>En pause</translation>
    </message>
    <message>
        <source>Done</source>
        <translation>Terminé</translation>
    </message>
    <message>
        <source>Failed</source>
        <translation>Échoué</translation>
    </message>
    <message>
        <source>%1 of %2</source>
        <translation>%1 sur %2</translation>
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
        <translation>Fichier</translation>
    </message>
    <message>
        <source>State</source>
        <translation>État</translation>
    </message>
    <message>
        <source>Progress</source>
        <translation>Progression</translation>
    </message>
    <message>
        <source>Size</source>
        <translation>Taille</translation>
    </message>
    <message>
        <source>Rate</source>
        <translation>Débit</translation>
    </message>
    <message>
        <source>Time left</source>
        <translation>Temps restant</translation>
    </message>
    <message>
        <source>Details</source>
        <translation>Détails</translation>
    </message>
    <message>
        <source>download</source>
        <translation>téléchargement</translation>
    </message>
</context>
<context>
    <name>downloads::LoginDialog</name>
    <message>
        <source>Login</source>
        <translation>Connexion</translation>
    </message>
    <message>
        <source>Log in</source>
        <translation>Se connecter</translation>
    </message>
    <message>
        <source>%1 asks for a login.</source>
        <translation>%1 demande une connexion.</translation>
    </message>
    <message>
        <source>&amp;User name:</source>
        <translation>&amp;Nom d’utilisateur&#xa0;:</translation>
    </message>
    <message>
        <source>&amp;Password:</source>
        <translation>&amp;Mot de passe&#xa0;:</translation>
    </message>
    <message>
        <source>Logging in…</source>
        <translation>Connexion en cours…</translation>
    </message>
</context>
<context>
    <name>downloads::LoginDialogAuthenticator</name>
    <message>
        <source>The login at %1 was cancelled</source>
        <translation>La connexion à %1 a été annulée</translation>
    </message>
    <message>
        <source>The connection is not encrypted: others may read what you type.</source>
        <translation>La connexion n’est pas chiffrée&#xa0;: d’autres peuvent lire ce que vous saisissez.</translation>
    </message>
    <message>
        <source>Certificates are not verified: this may be a different server.</source>
        <translation>Les certificats ne sont pas vérifiés&#xa0;: il peut s’agir d’un autre serveur.</translation>
    </message>
    <message>
        <source>The server does not accept this name and password.</source>
        <translation>Le serveur n’accepte pas ce nom et ce mot de passe.</translation>
    </message>
</context>
<context>
    <name>downloads::MainWindow</name>
    <message>
        <source>Downloads files over HTTP and HTTPS.</source>
        <translation>Télécharge des fichiers par HTTP et HTTPS.</translation>
    </message>
    <message>
        <source>Save files in &lt;path&gt;.</source>
        <translation>Enregistrer les fichiers dans &lt;chemin&gt;.</translation>
    </message>
    <message>
        <source>path</source>
        <translation>chemin</translation>
    </message>
    <message>
        <source>Download &lt;count&gt; files at once.</source>
        <translation>Télécharger &lt;nombre&gt; fichiers simultanément.</translation>
    </message>
    <message>
        <source>count</source>
        <translation>nombre</translation>
    </message>
    <message>
        <source>Accept unverified certificates.</source>
        <translation>Accepter les certificats non vérifiés.</translation>
    </message>
    <message>
        <source>What to download.</source>
        <translation>Ce qu’il faut télécharger.</translation>
    </message>
    <message>
        <source>Accept unverified &amp;certificates</source>
        <translation>Accepter les &amp;certificats non vérifiés</translation>
    </message>
    <message>
        <source>Download manager</source>
        <translation>Gestionnaire de téléchargements</translation>
    </message>
    <message>
        <source>There is no folder %1</source>
        <translation>Le dossier %1 n’existe pas</translation>
    </message>
    <message>
        <source>Not a web address: %1</source>
        <translation>Adresse web non valide&#xa0;: %1</translation>
    </message>
    <message>
        <source>Downloads</source>
        <translation>Téléchargements</translation>
    </message>
    <message>
        <source>Resume</source>
        <translation>Reprendre</translation>
    </message>
    <message>
        <source>Pause</source>
        <translation>Suspendre</translation>
    </message>
    <message>
        <source>Remove</source>
        <translation>Retirer</translation>
    </message>
    <message>
        <source>Clear done</source>
        <translation>Retirer les terminés</translation>
    </message>
    <message>
        <source>Paste one or more addresses here</source>
        <translation>Collez ici une ou plusieurs adresses</translation>
    </message>
    <message>
        <source>&amp;Add</source>
        <translation>&amp;Ajouter</translation>
    </message>
    <message>
        <source>C&amp;hoose…</source>
        <translation>C&amp;hoisir…</translation>
    </message>
    <message>
        <source>For test and in-house servers: their identity is not verified.</source>
        <translation>Pour les serveurs de test et internes&#xa0;: personne ne garantit leur identité.</translation>
    </message>
    <message>
        <source>&amp;Save in:</source>
        <translation>&amp;Enregistrer dans&#xa0;:</translation>
    </message>
    <message>
        <source>A&amp;t once:</source>
        <translation>&amp;Simultanés&#xa0;:</translation>
    </message>
    <message>
        <source>Save downloads in</source>
        <translation>Enregistrer les téléchargements dans</translation>
    </message>
    <message>
        <source>%1 active  ·  %2 queued  ·  %3 done  ·  %4 failed  ·  %5 received  ·  %6</source>
        <translation>%1 en cours  ·  %2 en attente  ·  %3 terminés  ·  %4 échoués  ·  %5 reçus  ·  %6</translation>
    </message>
</context>
</TS>
