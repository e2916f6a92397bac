<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr">
<context>
    <name></name>
    <message id="home_status_active">
        <source></source>
        <translation>Protection active</translation>
    </message>
    <message id="home_status_inactive">
        <source></source>
        <translation>Protection désactivée</translation>
    </message>
    <message id="home_open_stats">
        <source></source>
        <translation>Statistiques</translation>
    </message>
    <message id="home_open_settings">
        <source></source>
        <translation>Préférences…</translation>
    </message>
    <message id="about_title">
        <source></source>
        <translation>À propos de Sentrel</translation>
    </message>
    <message id="notif_alert_title">
        <source></source>
        <translation>Regard indiscret détecté</translation>
    </message>
    <message id="notif_alert_text">
        <source></source>
        <translation>Quelqu&apos;un semble observer votre écran. L&apos;affichage a été assombri.</translation>
    </message>
    <message id="onboarding_camera_title">
        <source></source>
        <translation>Autoriser la caméra</translation>
    </message>
    <message id="onboarding_camera_body">
        <source></source>
        <translation>Sentrel utilise la caméra pour repérer les regards par-dessus votre épaule. Les images sont analysées sur cet ordinateur&#xa0;: rien n&apos;est enregistré, rien n&apos;est envoyé.</translation>
    </message>
    <message id="onboarding_continue">
        <source></source>
        <translation>Continuer</translation>
    </message>
    <message id="onboarding_overlay_title">
        <source></source>
        <translation>Un filtre sur tout l&apos;écran</translation>
    </message>
    <message id="onboarding_notif_title">
        <source></source>
        <translation>Recevoir les alertes</translation>
    </message>
    <message id="onboarding_notif_body">
        <source></source>
        <translation>Dès qu&apos;un regard indiscret est détecté, Sentrel vous prévient par une notification sonore.</translation>
    </message>
    <message id="onboarding_grant">
        <source></source>
        <translation>Autoriser les notifications</translation>
    </message>
    <message id="onboarding_skip">
        <source></source>
        <translation>Plus tard</translation>
    </message>
    <message id="stats_title">
        <source></source>
        <translation>Statistiques</translation>
    </message>
    <message id="stats_header">
        <source></source>
        <translation>Votre protection en chiffres</translation>
    </message>
    <message id="stats_alerts_label">
        <source></source>
        <translation>Alertes</translation>
    </message>
    <message id="stats_sessions_label">
        <source></source>
        <translation>Sessions</translation>
    </message>
    <message id="stats_time_label">
        <source></source>
        <translation>Temps protégé</translation>
    </message>
    <message id="stats_reset">
        <source></source>
        <translation>Remettre à zéro…</translation>
    </message>
    <message id="stats_reset_confirm">
        <source></source>
        <translation>Remettre tous les compteurs à zéro&#x202f;? Cette action est définitive.</translation>
    </message>
    <message id="stats_reset_yes">
        <source></source>
        <translation>Remettre à zéro</translation>
    </message>
    <message id="stats_reset_cancel">
        <source></source>
        <translation>Annuler</translation>
    </message>
    <message id="stats_back">
        <source></source>
        <translation>Retour</translation>
    </message>
    <message id="about_version">
        <source></source>
        <translation>Version</translation>
    </message>
    <message id="about_developer_title">
        <source></source>
        <translation>Le développement</translation>
    </message>
    <message id="about_developer_body">
        <source></source>
        <translation>Sentrel est un logiciel libre, écrit et entretenu par celles et ceux qui contribuent à son code.</translation>
    </message>
    <message id="about_project_title">
        <source></source>
        <translation>Le projet</translation>
    </message>
    <message id="about_project_body">
        <source></source>
        <translation>Écarter les regards par-dessus l&apos;épaule, sans filtre physique ni matériel supplémentaire.</translation>
    </message>
    <message id="about_privacy_title">
        <source></source>
        <translation>Votre vie privée</translation>
    </message>
    <message id="about_privacy_body">
        <source></source>
        <translation>L&apos;image de la caméra est analysée sur cet ordinateur, puis oubliée. Rien n&apos;est enregistré ni envoyé sur Internet.</translation>
    </message>
    <message id="shortcut_unavailable_hint">
        <source></source>
        <translation>Ce bureau ne permet pas de raccourci global&#xa0;: associez une touche à la commande indiquée dans le manuel.</translation>
    </message>
    <message id="tray_open">
        <source></source>
        <translation>Ouvrir Sentrel</translation>
    </message>
    <message id="tray_enable">
        <source></source>
        <translation>Activer la protection</translation>
    </message>
    <message id="tray_disable">
        <source></source>
        <translation>Désactiver la protection</translation>
    </message>
    <message id="error_no_camera">
        <source></source>
        <translation>Caméra introuvable</translation>
    </message>
    <message id="error_camera_denied">
        <source></source>
        <translation>Accès à la caméra refusé</translation>
    </message>
    <message id="error_camera_busy">
        <source></source>
        <translation>Caméra occupée</translation>
    </message>
    <message id="error_model_missing">
        <source></source>
        <translation>Modèle de détection absent</translation>
    </message>
    <message id="error_no_pipewire">
        <source></source>
        <translation>Service PipeWire introuvable&#xa0;: installez pipewire et wireplumber.</translation>
    </message>
    <message id="advice_no_camera">
        <source></source>
        <translation>branchez une caméra ; « wpctl status » liste celles que PipeWire connaît</translation>
    </message>
    <message id="advice_camera_denied">
        <source></source>
        <translation>ajoutez votre compte au groupe « video », puis rouvrez votre session</translation>
    </message>
    <message id="advice_camera_busy">
        <source></source>
        <translation>fermez le programme qui l&apos;utilise ; Sentrel la reprendra de lui-même</translation>
    </message>
    <message id="advice_model_missing">
        <source></source>
        <translation>réinstallez Sentrel ou lancez scripts/fetch-models</translation>
    </message>
    <message id="advice_no_pipewire">
        <source></source>
        <translation>puis rouvrez votre session</translation>
    </message>
    <message id="error_analysis_failed">
        <source></source>
        <translation>Détection de visages en échec</translation>
    </message>
    <message id="advice_analysis_failed">
        <source></source>
        <translation>Sentrel réessaie de lui-même ; redémarrez-le si cela dure</translation>
    </message>
    <message id="notif_camera_text">
        <source></source>
        <translation>Votre écran n&apos;est pas protégé pour l&apos;instant. Sentrel réessaie et vous protégera dès que la caméra répondra.</translation>
    </message>
    <message id="error_no_overlay">
        <source></source>
        <translation>Ce bureau ne permet pas de couvrir l&apos;écran. Les alertes restent actives.</translation>
    </message>
    <message id="error_no_compositing">
        <source></source>
        <translation>Sans gestionnaire de composition, seules les alertes sont affichées.</translation>
    </message>
    <message id="error_settings_damaged">
        <source></source>
        <translation>Réglages endommagés&#xa0;: les valeurs lisibles ont été reprises, l&apos;ancien fichier est conservé.</translation>
    </message>
    <message id="error_login_item">
        <source></source>
        <translation>Le lancement au démarrage n&apos;a pas pu être modifié.</translation>
    </message>
    <message id="error_settings_unreadable">
        <source></source>
        <translation>Réglages illisibles : Sentrel utilise les valeurs standard, et le fichier reste tel quel.</translation>
    </message>
    <message id="notif_off_title">
        <source></source>
        <translation>Protection désactivée</translation>
    </message>
    <message id="notif_off_text">
        <source></source>
        <translation>Un raccourci du bureau, un script ou un autre programme l&apos;a demandé.</translation>
    </message>
    <message id="link_copy">
        <source></source>
        <translation>Copier l&apos;adresse</translation>
    </message>
    <message id="onboarding_camera_again">
        <source></source>
        <translation>La caméra n&apos;est pas encore autorisée.</translation>
    </message>
    <message id="command_usage">
        <source></source>
        <translation>Utilisation&#xa0;: sentrel [COMMANDE]</translation>
    </message>
    <message id="command_none">
        <source></source>
        <translation>Sans commande, sentrel protège l&apos;écran&#xa0;; s&apos;il le fait déjà, sa fenêtre s&apos;ouvre.</translation>
    </message>
    <message id="command_help">
        <source></source>
        <translation>affiche cette aide et se termine</translation>
    </message>
    <message id="command_version">
        <source></source>
        <translation>affiche la version et se termine</translation>
    </message>
    <message id="command_service">
        <source></source>
        <translation>attend ce que demande le bus de session, qui démarre ainsi le programme</translation>
    </message>
    <message id="command_manual">
        <source></source>
        <translation>«&#xa0;man sentrel&#xa0;» explique les réglages et ce que des scripts peuvent demander.</translation>
    </message>
    <message id="command_unknown">
        <source></source>
        <translation>argument inconnu&#xa0;: «&#xa0;%1&#xa0;»&#xa0;; «&#xa0;sentrel --help&#xa0;» dit ce qui existe.</translation>
    </message>
    <message id="notif_pause_title">
        <source></source>
        <translation>Protection en pause</translation>
    </message>
    <message id="notif_guest_title">
        <source></source>
        <translation>Des invités peuvent regarder</translation>
    </message>
    <message id="command_status">
        <source></source>
        <translation>dit ce que fait la protection&#xa0;; --json pour les scripts, --watch pour suivre</translation>
    </message>
    <message id="command_on">
        <source></source>
        <translation>active la protection</translation>
    </message>
    <message id="command_off">
        <source></source>
        <translation>désactive la protection</translation>
    </message>
    <message id="command_toggle">
        <source></source>
        <translation>active ou désactive la protection</translation>
    </message>
    <message id="command_pause">
        <source></source>
        <translation>met en pause, 24 heures au plus&#xa0;; tomorrow est demain 8&#xa0;h</translation>
    </message>
    <message id="command_resume">
        <source></source>
        <translation>met fin à la pause</translation>
    </message>
    <message id="command_guest">
        <source></source>
        <translation>laisse regarder un à trois invités, sans durée jusqu&apos;au verrouillage</translation>
    </message>
    <message id="command_alone">
        <source></source>
        <translation>ne laisse plus regarder personne</translation>
    </message>
    <message id="command_cover">
        <source></source>
        <translation>couvre tous les écrans, ou les découvre</translation>
    </message>
    <message id="command_preferences">
        <source></source>
        <translation>ouvre les préférences</translation>
    </message>
    <message id="command_statistics">
        <source></source>
        <translation>ouvre les statistiques</translation>
    </message>
    <message id="command_quit">
        <source></source>
        <translation>termine Sentrel</translation>
    </message>
    <message id="command_duration">
        <source></source>
        <translation>une durée est demandée&#xa0;: 90s, 15m, 1h, 24h au plus, ou tomorrow, qui est demain 8&#xa0;h.</translation>
    </message>
    <message id="command_guests">
        <source></source>
        <translation>un nombre d&apos;invités va de 1 à 3.</translation>
    </message>
    <message id="command_not_running">
        <source></source>
        <translation>Sentrel ne tourne pas.</translation>
    </message>
    <message id="command_no_answer">
        <source></source>
        <translation>Sentrel ne répond pas.</translation>
    </message>
    <message id="command_refused_locked">
        <source></source>
        <translation>refusé&#xa0;: la session est verrouillée.</translation>
    </message>
    <message id="command_refused_off">
        <source></source>
        <translation>refusé&#xa0;: la protection est désactivée.</translation>
    </message>
    <message id="command_refused_paused">
        <source></source>
        <translation>refusé&#xa0;: la protection est en pause.</translation>
    </message>
    <message id="command_refused_cover">
        <source></source>
        <translation>refusé&#xa0;: aucun écran ne peut être couvert.</translation>
    </message>
    <message id="command_refused_misused">
        <source></source>
        <translation>refusé&#xa0;: un nombre ou une durée hors limites.</translation>
    </message>
    <message id="command_refused_display">
        <source></source>
        <translation>refusé&#xa0;: Sentrel n&apos;a pas d&apos;écran où ouvrir une fenêtre.</translation>
    </message>
    <message id="Sur macOS, le filtre Sentrel peut couvrir toutes les applications simultanément, y compris les apps en plein écran — une capacité unique que iOS ne permet pas.">
        <source></source>
        <translation>Le filtre Sentrel couvre toutes les applications simultanément, y compris celles en plein écran.</translation>
    </message>
    <message id="⌘⇧C">
        <source></source>
        <translation>Super+Maj+C</translation>
    </message>
    <message id="Raccourci global ⌘⇧C">
        <source></source>
        <translation>Raccourci global Super+Maj+C</translation>
    </message>
    <message id="REGARD INDISCRET">
        <source></source>
        <translation>REGARD INDISCRET</translation>
    </message>
    <message id="Quelqu'un observe votre écran">
        <source></source>
        <translation>Quelqu&apos;un observe votre écran</translation>
    </message>
    <message id="La caméra reste fermée tant que la session est verrouillée, en veille ou en pause.">
        <source></source>
        <translation>La caméra reste fermée tant que la session est verrouillée, en veille ou en pause.</translation>
    </message>
    <message id="Aucun visage détecté. Assurez-vous d'être bien en face de la caméra.">
        <source></source>
        <translation>Aucun visage détecté. Assurez-vous d&apos;être bien en face de la caméra.</translation>
    </message>
    <message id="INTRUS DÉTECTÉ">
        <source></source>
        <translation>INTRUS DÉTECTÉ</translation>
    </message>
    <message id="Fermer">
        <source></source>
        <translation>Fermer</translation>
    </message>
    <message id="Calibration de distance">
        <source></source>
        <translation>Calibration de distance</translation>
    </message>
    <message id="Installez-vous à votre distance de travail habituelle, regardez droit vers la caméra et appuyez sur Démarrer.">
        <source></source>
        <translation>Installez-vous à votre distance de travail habituelle, regardez droit vers la caméra et appuyez sur Démarrer.</translation>
    </message>
    <message id="Sentrel va mesurer votre distance habituelle à l'écran pour adapter ses alertes.">
        <source></source>
        <translation>Sentrel va mesurer votre distance habituelle à l&apos;écran pour adapter ses alertes.</translation>
    </message>
    <message id="Restez immobile…">
        <source></source>
        <translation>Restez immobile…</translation>
    </message>
    <message id="Mesure en cours…">
        <source></source>
        <translation>Mesure en cours…</translation>
    </message>
    <message id="3 secondes">
        <source></source>
        <translation>3 secondes</translation>
    </message>
    <message id="Calibration échouée">
        <source></source>
        <translation>Calibration échouée</translation>
    </message>
    <message id="Distance estimée : %lld cm">
        <source></source>
        <translation>Distance estimée : %lld cm</translation>
    </message>
    <message id="Réduire la distance">
        <source></source>
        <translation>Réduire la distance</translation>
    </message>
    <message id="Augmenter la distance">
        <source></source>
        <translation>Augmenter la distance</translation>
    </message>
    <message id="Vous pouvez ajuster cette valeur si elle vous semble incorrecte.">
        <source></source>
        <translation>Vous pouvez ajuster cette valeur si elle vous semble incorrecte.</translation>
    </message>
    <message id="Démarrer">
        <source></source>
        <translation>Démarrer</translation>
    </message>
    <message id="Annuler">
        <source></source>
        <translation>Annuler</translation>
    </message>
    <message id="Recommencer">
        <source></source>
        <translation>Recommencer</translation>
    </message>
    <message id="Valider">
        <source></source>
        <translation>Valider</translation>
    </message>
    <message id="Réessayer">
        <source></source>
        <translation>Réessayer</translation>
    </message>
    <message id="Étape %1 sur %2">
        <source></source>
        <translation>Étape %1 sur %2</translation>
    </message>
    <message id="Sentrel · Nos autres projets">
        <source></source>
        <translation>Sentrel · Nos autres projets</translation>
    </message>
    <message id="Protection">
        <source></source>
        <translation>Protection</translation>
    </message>
    <message id="Calibrer maintenant">
        <source></source>
        <translation>Calibrer maintenant</translation>
    </message>
    <message id="✓ Calibré (%1 cm)">
        <source></source>
        <translation>✓ Calibré (%1 cm)</translation>
    </message>
    <message id="Compris">
        <source></source>
        <translation>Compris</translation>
    </message>
    <message id="✓ Autorisé">
        <source></source>
        <translation>✓ Autorisé</translation>
    </message>
    <message id="Pour des alertes précises, calibrez Sentrel à votre distance de travail habituelle. Cette étape prend 5 secondes.">
        <source></source>
        <translation>Pour des alertes précises, calibrez Sentrel à votre distance de travail habituelle. Cette étape prend 5 secondes.</translation>
    </message>
    <message id="Passer">
        <source></source>
        <translation>Passer</translation>
    </message>
    <message id="Lancer au démarrage">
        <source></source>
        <translation>Lancer au démarrage</translation>
    </message>
    <message id="Sentrel peut se lancer automatiquement à l'ouverture de session pour vous protéger dès le début.">
        <source></source>
        <translation>Sentrel peut se lancer automatiquement à l&apos;ouverture de session pour vous protéger dès le début.</translation>
    </message>
    <message id="Activer">
        <source></source>
        <translation>Activer</translation>
    </message>
    <message id="✓ Activé">
        <source></source>
        <translation>✓ Activé</translation>
    </message>
    <message id="Bienvenue dans Sentrel">
        <source></source>
        <translation>Bienvenue dans Sentrel</translation>
    </message>
    <message id="Préférences Sentrel">
        <source></source>
        <translation>Préférences Sentrel</translation>
    </message>
    <message id="Caméra">
        <source></source>
        <translation>Caméra</translation>
    </message>
    <message id="Sélectionnez la caméra utilisée pour la détection">
        <source></source>
        <translation>Sélectionnez la caméra utilisée pour la détection</translation>
    </message>
    <message id="Détection">
        <source></source>
        <translation>Détection</translation>
    </message>
    <message id="Force du filtre">
        <source></source>
        <translation>Force du filtre</translation>
    </message>
    <message id="Opacité de l'overlay de confidentialité">
        <source></source>
        <translation>Opacité de l&apos;overlay de confidentialité</translation>
    </message>
    <message id="Sensibilité">
        <source></source>
        <translation>Sensibilité</translation>
    </message>
    <message id="Réactivité aux mouvements de tête">
        <source></source>
        <translation>Réactivité aux mouvements de tête</translation>
    </message>
    <message id="Délai d'inattention">
        <source></source>
        <translation>Délai d&apos;inattention</translation>
    </message>
    <message id="Temps avant de considérer que vous ne regardez plus">
        <source></source>
        <translation>Temps avant de considérer que vous ne regardez plus</translation>
    </message>
    <message id="Mode lunettes">
        <source></source>
        <translation>Mode lunettes</translation>
    </message>
    <message id="Réduit les faux positifs si vous portez des lunettes">
        <source></source>
        <translation>Réduit les faux positifs si vous portez des lunettes</translation>
    </message>
    <message id="Comportement">
        <source></source>
        <translation>Comportement</translation>
    </message>
    <message id="Activer / désactiver le filtre sans ouvrir le menu">
        <source></source>
        <translation>Activer / désactiver le filtre sans ouvrir le menu</translation>
    </message>
    <message id="Couvrir tous les écrans">
        <source></source>
        <translation>Couvrir tous les écrans</translation>
    </message>
    <message id="Étend l'overlay à chaque moniteur connecté">
        <source></source>
        <translation>Étend l&apos;overlay à chaque moniteur connecté</translation>
    </message>
    <message id="Vibration lors d'une alerte">
        <source></source>
        <translation>Vibration lors d&apos;une alerte</translation>
    </message>
    <message id="Retour haptique quand un regard indiscret est détecté">
        <source></source>
        <translation>Retour haptique quand un regard indiscret est détecté</translation>
    </message>
    <message id="Matrice de confidentialité">
        <source></source>
        <translation>Matrice de confidentialité</translation>
    </message>
    <message id="Activer la matrice">
        <source></source>
        <translation>Activer la matrice</translation>
    </message>
    <message id="Affiche un motif de bandes qui rend l'écran illisible de côté">
        <source></source>
        <translation>Affiche un motif de bandes qui rend l&apos;écran illisible de côté</translation>
    </message>
    <message id="Coefficient de distance">
        <source></source>
        <translation>Coefficient de distance</translation>
    </message>
    <message id="Amplifie la distance estimée pour une protection plus large">
        <source></source>
        <translation>Amplifie la distance estimée pour une protection plus large</translation>
    </message>
    <message id="Opacité des bandes">
        <source></source>
        <translation>Opacité des bandes</translation>
    </message>
    <message id="Plus élevée = moins lisible de côté mais plus visible de face">
        <source></source>
        <translation>Plus élevée = moins lisible de côté mais plus visible de face</translation>
    </message>
    <message id="Avancé">
        <source></source>
        <translation>Avancé</translation>
    </message>
    <message id="Fréquence de capture">
        <source></source>
        <translation>Fréquence de capture</translation>
    </message>
    <message id="Fréquence d'analyse de la caméra — réduire pour économiser la batterie">
        <source></source>
        <translation>Fréquence d&apos;analyse de la caméra — réduire pour économiser la batterie</translation>
    </message>
    <message id="Pause batterie">
        <source></source>
        <translation>Pause batterie</translation>
    </message>
    <message id="Désactive automatiquement le filtre en dessous de ce seuil">
        <source></source>
        <translation>Désactive automatiquement le filtre en dessous de ce seuil</translation>
    </message>
    <message id="Désactivé">
        <source></source>
        <translation>Désactivé</translation>
    </message>
    <message id="Calibrer…">
        <source></source>
        <translation>Calibrer…</translation>
    </message>
    <message id="Distance de calibration">
        <source></source>
        <translation>Distance de calibration</translation>
    </message>
    <message id="Non calibré">
        <source></source>
        <translation>Non calibré</translation>
    </message>
    <message id="Distance mesurée lors de la calibration">
        <source></source>
        <translation>Distance mesurée lors de la calibration</translation>
    </message>
    <message id="Non calibré — les alertes utilisent la distance par défaut (60 cm)">
        <source></source>
        <translation>Non calibré — les alertes utilisent la distance par défaut (60 cm)</translation>
    </message>
    <message id="Sentrel se lance automatiquement à l'ouverture de session">
        <source></source>
        <translation>Sentrel se lance automatiquement à l&apos;ouverture de session</translation>
    </message>
    <message id="Par défaut (frontale)">
        <source></source>
        <translation>Par défaut (frontale)</translation>
    </message>
    <message id="notif_shared_paused">
        <source></source>
        <translation>La protection est en pause pendant le partage.</translation>
    </message>
    <message id="notif_shared_hidden">
        <source></source>
        <translation>Les bandes sont masquées et une alerte ne fait que prévenir, car tous les participants les verraient.</translation>
    </message>
    <message id="notif_shared_title">
        <source></source>
        <translation>Écran partagé</translation>
    </message>
    <message id="Ce n'est personne">
        <source></source>
        <translation>Ce n&apos;est personne</translation>
    </message>
    <message id="Pause 15 min">
        <source></source>
        <translation>Pause 15 min</translation>
    </message>
    <message id="Reprend à %1, ou au déverrouillage">
        <source></source>
        <translation>Reprend à %1, ou au déverrouillage</translation>
    </message>
    <message id="Écran partagé : bandes masquées">
        <source></source>
        <translation>Écran partagé : bandes masquées</translation>
    </message>
    <message id="Écran partagé : en pause">
        <source></source>
        <translation>Écran partagé : en pause</translation>
    </message>
    <message id="1 invité">
        <source></source>
        <translation>1 invité</translation>
    </message>
    <message id="%1 invités">
        <source></source>
        <translation>%1 invités</translation>
    </message>
    <message id="Oublier">
        <source></source>
        <translation>Oublier</translation>
    </message>
    <message id="1 visage ignoré">
        <source></source>
        <translation>1 visage ignoré</translation>
    </message>
    <message id="%1 visages ignorés">
        <source></source>
        <translation>%1 visages ignorés</translation>
    </message>
    <message id="par une commande">
        <source></source>
        <translation>par une commande</translation>
    </message>
    <message id="par la notification">
        <source></source>
        <translation>par la notification</translation>
    </message>
    <message id="Replié">
        <source></source>
        <translation>Replié</translation>
    </message>
    <message id="Déplié">
        <source></source>
        <translation>Déplié</translation>
    </message>
    <message id="%1 min">
        <source></source>
        <translation>%1 min</translation>
    </message>
    <message id="%1 h %2">
        <source></source>
        <translation>%1 h %2</translation>
    </message>
    <message id="Reprendre">
        <source></source>
        <translation>Reprendre</translation>
    </message>
    <message id="Je suis seul">
        <source></source>
        <translation>Je suis seul</translation>
    </message>
    <message id="Mettre en pause">
        <source></source>
        <translation>Mettre en pause</translation>
    </message>
    <message id="15 minutes">
        <source></source>
        <translation>15 minutes</translation>
    </message>
    <message id="1 heure">
        <source></source>
        <translation>1 heure</translation>
    </message>
    <message id="Jusqu'à demain 8 h">
        <source></source>
        <translation>Jusqu&apos;à demain 8 h</translation>
    </message>
    <message id="Je ne suis pas seul">
        <source></source>
        <translation>Je ne suis pas seul</translation>
    </message>
    <message id="30 minutes">
        <source></source>
        <translation>30 minutes</translation>
    </message>
    <message id="Jusqu'au verrouillage">
        <source></source>
        <translation>Jusqu&apos;au verrouillage</translation>
    </message>
    <message id="Il alerte encore, et sera ignoré s'il reste immobile 10 s d'ici 30 s">
        <source></source>
        <translation>Il alerte encore, et sera ignoré s&apos;il reste immobile 10 s d&apos;ici 30 s</translation>
    </message>
    <message id="Trois visages sont déjà ignorés">
        <source></source>
        <translation>Trois visages sont déjà ignorés</translation>
    </message>
    <message id="Trop loin pour savoir s'il est immobile">
        <source></source>
        <translation>Trop loin pour savoir s&apos;il est immobile</translation>
    </message>
    <message id="Réactions">
        <source></source>
        <translation>Réactions</translation>
    </message>
    <message id="Exceptions">
        <source></source>
        <translation>Exceptions</translation>
    </message>
    <message id="Quand quelqu'un regarde">
        <source></source>
        <translation>Quand quelqu&apos;un regarde</translation>
    </message>
    <message id="Ce qui se passe lors d'une alerte">
        <source></source>
        <translation>Ce qui se passe lors d&apos;une alerte</translation>
    </message>
    <message id="Assombrir et prévenir">
        <source></source>
        <translation>Assombrir et prévenir</translation>
    </message>
    <message id="Prévenir seulement">
        <source></source>
        <translation>Prévenir seulement</translation>
    </message>
    <message id="Assombrir seulement">
        <source></source>
        <translation>Assombrir seulement</translation>
    </message>
    <message id="Pendant un partage d'écran">
        <source></source>
        <translation>Pendant un partage d&apos;écran</translation>
    </message>
    <message id="Les programmes X11 qui capturent l'écran eux-mêmes ne peuvent pas être remarqués">
        <source></source>
        <translation>Les programmes X11 qui capturent l&apos;écran eux-mêmes ne peuvent pas être remarqués</translation>
    </message>
    <message id="Masquer les bandes">
        <source></source>
        <translation>Masquer les bandes</translation>
    </message>
    <message id="Ne rien changer">
        <source></source>
        <translation>Ne rien changer</translation>
    </message>
    <message id="Surveiller jusqu'à">
        <source></source>
        <translation>Surveiller jusqu&apos;à</translation>
    </message>
    <message id="Un visage plus éloigné n'alerte pas">
        <source></source>
        <translation>Un visage plus éloigné n&apos;alerte pas</translation>
    </message>
    <message id="Sans limite">
        <source></source>
        <translation>Sans limite</translation>
    </message>
    <message id="3,5 m">
        <source></source>
        <translation>3,5 m</translation>
    </message>
    <message id="2,5 m">
        <source></source>
        <translation>2,5 m</translation>
    </message>
    <message id="1,5 m">
        <source></source>
        <translation>1,5 m</translation>
    </message>
    <message id="Aucun visage ignoré">
        <source></source>
        <translation>Aucun visage ignoré</translation>
    </message>
    <message id="Alerter après">
        <source></source>
        <translation>Alerter après</translation>
    </message>
    <message id="Temps pendant lequel quelqu'un doit être là">
        <source></source>
        <translation>Temps pendant lequel quelqu&apos;un doit être là</translation>
    </message>
    <message id="Seulement si l'on regarde l'écran">
        <source></source>
        <translation>Seulement si l&apos;on regarde l&apos;écran</translation>
    </message>
    <message id="Un visage tourné de 45° ou plus n'alerte pas">
        <source></source>
        <translation>Un visage tourné de 45° ou plus n&apos;alerte pas</translation>
    </message>
    <message id="depuis %1">
        <source></source>
        <translation>depuis %1</translation>
    </message>
    <message id="cover_title">
        <source></source>
        <translation>Écran couvert</translation>
    </message>
    <message id="Découvrir">
        <source></source>
        <translation>Découvrir</translation>
    </message>
    <message id="Appuyez de nouveau pour découvrir">
        <source></source>
        <translation>Appuyez de nouveau pour découvrir</translation>
    </message>
    <message id="shortcut_cover_description">
        <source></source>
        <translation>Couvrir ou découvrir tous les écrans</translation>
    </message>
    <message id="Raccourci global ⌘⇧V">
        <source></source>
        <translation>Raccourci global Super+Maj+V</translation>
    </message>
    <message id="shortcut_cover_hint">
        <source></source>
        <translation>Couvrir ou découvrir tous les écrans d&apos;un coup</translation>
    </message>
    <message id="Masquer les autres notifications pendant une alerte">
        <source></source>
        <translation>Masquer les autres notifications pendant une alerte</translation>
    </message>
    <message id="Leur contenu n'apparaît pas tant que quelqu'un regarde">
        <source></source>
        <translation>Leur contenu n&apos;apparaît pas tant que quelqu&apos;un regarde</translation>
    </message>
    <message id="Ce bureau ne permet pas de masquer celles des autres programmes">
        <source></source>
        <translation>Ce bureau ne permet pas de masquer celles des autres programmes</translation>
    </message>
    <message id="Bandes : %1, 1 écran couvert">
        <source></source>
        <translation>Bandes : %1, 1 écran couvert</translation>
    </message>
    <message id="Bandes : %1, %2 écrans couverts">
        <source></source>
        <translation>Bandes : %1, %2 écrans couverts</translation>
    </message>
    <message id="Ce bureau ne permet pas de couvrir l'écran">
        <source></source>
        <translation>Ce bureau ne permet pas de couvrir l&apos;écran</translation>
    </message>
    <message id="attribué par le bureau : %1">
        <source></source>
        <translation>attribué par le bureau : %1</translation>
    </message>
    <message id="refusé">
        <source></source>
        <translation>refusé</translation>
    </message>
    <message id="sans réponse du bureau">
        <source></source>
        <translation>sans réponse du bureau</translation>
    </message>
    <message id="aucune barre">
        <source></source>
        <translation>aucune barre</translation>
    </message>
    <message id="Ce bureau">
        <source></source>
        <translation>Ce bureau</translation>
    </message>
    <message id="Raccourci : %1">
        <source></source>
        <translation>Raccourci : %1</translation>
    </message>
    <message id="Icône : %1">
        <source></source>
        <translation>Icône : %1</translation>
    </message>
    <message id="command_doctor">
        <source></source>
        <translation>dire ce qui manque, et quoi faire</translation>
    </message>
    <message id="doctor_no_answer">
        <source></source>
        <translation>pas de réponse</translation>
    </message>
    <message id="doctor_version">
        <source></source>
        <translation>Versions</translation>
    </message>
    <message id="doctor_system">
        <source></source>
        <translation>Système</translation>
    </message>
    <message id="doctor_processor">
        <source></source>
        <translation>Processeur</translation>
    </message>
    <message id="doctor_engine">
        <source></source>
        <translation>Moteur de détection</translation>
    </message>
    <message id="doctor_system_advice">
        <source></source>
        <translation>Un disque ne répond pas : regardez le journal du système</translation>
    </message>
    <message id="doctor_running">
        <source></source>
        <translation>en marche depuis %1</translation>
    </message>
    <message id="doctor_protection">
        <source></source>
        <translation>Protection</translation>
    </message>
    <message id="doctor_not_running">
        <source></source>
        <translation>ne tourne pas</translation>
    </message>
    <message id="doctor_silent_advice">
        <source></source>
        <translation>Quittez Sentrel ou fermez la session, puis relancez-le</translation>
    </message>
    <message id="doctor_desktop">
        <source></source>
        <translation>Bureau</translation>
    </message>
    <message id="doctor_session">
        <source></source>
        <translation>Bureau et session</translation>
    </message>
    <message id="doctor_display">
        <source></source>
        <translation>Affichage</translation>
    </message>
    <message id="doctor_none">
        <source></source>
        <translation>rien trouvé</translation>
    </message>
    <message id="doctor_display_advice">
        <source></source>
        <translation>Lancez Sentrel depuis la session graphique ; pour un service : systemctl --user import-environment DISPLAY WAYLAND_DISPLAY</translation>
    </message>
    <message id="doctor_bus">
        <source></source>
        <translation>Bus de session</translation>
    </message>
    <message id="doctor_bus_advice">
        <source></source>
        <translation>Installez dbus-user-session, puis rouvrez la session</translation>
    </message>
    <message id="doctor_portal">
        <source></source>
        <translation>Interfaces du portail</translation>
    </message>
    <message id="doctor_portal_advice">
        <source></source>
        <translation>Installez xdg-desktop-portal et celui de votre bureau : le raccourci et le contraste en dépendent</translation>
    </message>
    <message id="doctor_notifications">
        <source></source>
        <translation>Notifications</translation>
    </message>
    <message id="doctor_yes">
        <source></source>
        <translation>oui</translation>
    </message>
    <message id="doctor_notifications_advice">
        <source></source>
        <translation>Lancez un serveur de notifications, sinon une alerte ne s&apos;affiche que sur l&apos;écran</translation>
    </message>
    <message id="doctor_tray">
        <source></source>
        <translation>Barre qui prend l&apos;icône</translation>
    </message>
    <message id="doctor_tray_advice">
        <source></source>
        <translation>Ajoutez une zone de notification à votre barre (sous GNOME, une extension), ou relancez Sentrel pour ouvrir sa fenêtre</translation>
    </message>
    <message id="doctor_shortcut">
        <source></source>
        <translation>Raccourci</translation>
    </message>
    <message id="doctor_shortcut_advice">
        <source></source>
        <translation>Associez une touche à la commande « sentrel toggle » dans les réglages du clavier</translation>
    </message>
    <message id="doctor_cover_through_x11">
        <source></source>
        <translation>(le compositeur n&apos;a pas de layer shell)</translation>
    </message>
    <message id="doctor_screens">
        <source></source>
        <translation>Écrans</translation>
    </message>
    <message id="doctor_cover">
        <source></source>
        <translation>Couverture</translation>
    </message>
    <message id="doctor_compositing_advice">
        <source></source>
        <translation>Activez la composition du gestionnaire de fenêtres, ou lancez picom</translation>
    </message>
    <message id="doctor_cover_advice">
        <source></source>
        <translation>Ouvrez une session X11, ou un bureau Wayland qui offre zwlr_layer_shell_v1 ; les notifications restent</translation>
    </message>
    <message id="doctor_protocols">
        <source></source>
        <translation>Protocoles Wayland</translation>
    </message>
    <message id="doctor_cameras">
        <source></source>
        <translation>Caméras</translation>
    </message>
    <message id="doctor_pipewire_advice">
        <source></source>
        <translation>systemctl --user start pipewire wireplumber ; installez-les s&apos;ils manquent</translation>
    </message>
    <message id="doctor_camera_used">
        <source></source>
        <translation>Utilisée</translation>
    </message>
    <message id="doctor_access">
        <source></source>
        <translation>Accès aux caméras</translation>
    </message>
    <message id="doctor_witnesses">
        <source></source>
        <translation>Verrou, veille et énergie</translation>
    </message>
    <message id="doctor_lock">
        <source></source>
        <translation>Témoins du verrou</translation>
    </message>
    <message id="doctor_lock_advice">
        <source></source>
        <translation>Sans eux, la caméra reste ouverte écran verrouillé : utilisez un verrou qui prévient logind</translation>
    </message>
    <message id="doctor_sleep">
        <source></source>
        <translation>Témoins de la veille</translation>
    </message>
    <message id="doctor_sleep_advice">
        <source></source>
        <translation>Sans systemd-logind, ou elogind, la caméra peut rester ouverte à la mise en veille</translation>
    </message>
    <message id="doctor_power">
        <source></source>
        <translation>Témoins de l&apos;énergie</translation>
    </message>
    <message id="doctor_mains">
        <source></source>
        <translation>secteur, sans batterie</translation>
    </message>
    <message id="doctor_power_advice">
        <source></source>
        <translation>Installez upower : sans lui, une batterie faible ne met pas en pause</translation>
    </message>
    <message id="doctor_battery">
        <source></source>
        <translation>Batterie</translation>
    </message>
    <message id="doctor_files">
        <source></source>
        <translation>Fichiers</translation>
    </message>
    <message id="doctor_settings">
        <source></source>
        <translation>Réglages</translation>
    </message>
    <message id="doctor_healthy">
        <source></source>
        <translation>en bon état</translation>
    </message>
    <message id="doctor_settings_none">
        <source></source>
        <translation>pas encore de fichier</translation>
    </message>
    <message id="doctor_settings_damaged">
        <source></source>
        <translation>abîmés</translation>
    </message>
    <message id="doctor_settings_unreadable">
        <source></source>
        <translation>illisibles</translation>
    </message>
    <message id="doctor_settings_damaged_advice">
        <source></source>
        <translation>Au prochain lancement, ce qui est lisible est repris et l&apos;ancien fichier gardé à côté</translation>
    </message>
    <message id="doctor_settings_unreadable_advice">
        <source></source>
        <translation>Rendez-vous propriétaire de ~/.config/sentrel ; le fichier reste tel quel</translation>
    </message>
    <message id="doctor_models">
        <source></source>
        <translation>Modèles de détection</translation>
    </message>
    <message id="doctor_events">
        <source></source>
        <translation>Derniers événements</translation>
    </message>
    <message id="report_title">
        <source></source>
        <translation>Diagnostic</translation>
    </message>
    <message id="report_no_problem">
        <source></source>
        <translation>Aucun problème trouvé</translation>
    </message>
    <message id="report_one_problem">
        <source></source>
        <translation>1 problème trouvé</translation>
    </message>
    <message id="report_problems">
        <source></source>
        <translation>%1 problèmes trouvés</translation>
    </message>
    <message id="report_asking">
        <source></source>
        <translation>Les réponses arrivent…</translation>
    </message>
    <message id="Caméra couverte ou volet fermé">
        <source></source>
        <translation>Caméra couverte ou volet fermé</translation>
    </message>
    <message id="Trop sombre pour bien voir">
        <source></source>
        <translation>Trop sombre pour bien voir</translation>
    </message>
    <message id="Image figée">
        <source></source>
        <translation>Image figée</translation>
    </message>
    <message id="Vous n'êtes pas dans le champ">
        <source></source>
        <translation>Vous n&apos;êtes pas dans le champ</translation>
    </message>
    <message id="Contre-jour">
        <source></source>
        <translation>Contre-jour</translation>
    </message>
    <message id="Caméra utilisée par %1">
        <source></source>
        <translation>Caméra utilisée par %1</translation>
    </message>
    <message id="un autre programme">
        <source></source>
        <translation>un autre programme</translation>
    </message>
    <message id="Aucune image depuis %1">
        <source></source>
        <translation>Aucune image depuis %1</translation>
    </message>
    <message id="Montrer ce que Sentrel voit">
        <source></source>
        <translation>Montrer ce que Sentrel voit</translation>
    </message>
    <message id="Les visages et les délais, tant que la protection est active">
        <source></source>
        <translation>Les visages et les délais, tant que la protection est active</translation>
    </message>
    <message id="invité">
        <source></source>
        <translation>invité</translation>
    </message>
    <message id="trop loin">
        <source></source>
        <translation>trop loin</translation>
    </message>
    <message id="de profil">
        <source></source>
        <translation>de profil</translation>
    </message>
    <message id="affiche">
        <source></source>
        <translation>affiche</translation>
    </message>
    <message id="vous">
        <source></source>
        <translation>vous</translation>
    </message>
    <message id="quelqu'un">
        <source></source>
        <translation>quelqu&apos;un</translation>
    </message>
    <message id="%1,%2 s">
        <source></source>
        <translation>%1,%2 s</translation>
    </message>
    <message id="regarde ailleurs depuis %1 sur %2">
        <source></source>
        <translation>regarde ailleurs depuis %1 sur %2</translation>
    </message>
    <message id="quelqu'un est là depuis %1 sur %2">
        <source></source>
        <translation>quelqu&apos;un est là depuis %1 sur %2</translation>
    </message>
    <message id="plus personne depuis %1 sur %2">
        <source></source>
        <translation>plus personne depuis %1 sur %2</translation>
    </message>
    <message id="alerte maintenue depuis %1 sur %2">
        <source></source>
        <translation>alerte maintenue depuis %1 sur %2</translation>
    </message>
    <message id="journal_newer">
        <source></source>
        <translation>Journal d&apos;une version plus récente&#xa0;: il n&apos;est ni lu ni complété.</translation>
    </message>
    <message id="journal_damaged">
        <source></source>
        <translation>Journal endommagé&#xa0;: les lignes lisibles ont été gardées.</translation>
    </message>
    <message id="journal_unwritable">
        <source></source>
        <translation>Le journal ne peut pas être écrit&#xa0;: vérifiez la place et les droits de son dossier.</translation>
    </message>
    <message id="journal_end_gone">
        <source></source>
        <translation>plus personne</translation>
    </message>
    <message id="journal_end_nobody">
        <source></source>
        <translation>ce n&apos;était personne</translation>
    </message>
    <message id="journal_end_welcomed">
        <source></source>
        <translation>invité</translation>
    </message>
    <message id="journal_end_paused">
        <source></source>
        <translation>mis en pause</translation>
    </message>
    <message id="journal_end_away">
        <source></source>
        <translation>absent ou verrouillé</translation>
    </message>
    <message id="journal_end_low_battery">
        <source></source>
        <translation>batterie faible</translation>
    </message>
    <message id="journal_end_blind">
        <source></source>
        <translation>caméra perdue</translation>
    </message>
    <message id="journal_end_off">
        <source></source>
        <translation>protection désactivée</translation>
    </message>
    <message id="assombri">
        <source></source>
        <translation>assombri</translation>
    </message>
    <message id="notifié">
        <source></source>
        <translation>notifié</translation>
    </message>
    <message id="1 visage">
        <source></source>
        <translation>1 visage</translation>
    </message>
    <message id="%1 visages">
        <source></source>
        <translation>%1 visages</translation>
    </message>
    <message id="command_since">
        <source></source>
        <translation>un temps est demandé&#xa0;: 90m, 12h, 7d ou 4w.</translation>
    </message>
    <message id="command_journal_unreadable">
        <source></source>
        <translation>le journal ne peut pas être lu.</translation>
    </message>
    <message id="Aucune alerte">
        <source></source>
        <translation>Aucune alerte</translation>
    </message>
    <message id="command_journal">
        <source></source>
        <translation>liste les alertes gardées</translation>
    </message>
    <message id="1 alerte">
        <source></source>
        <translation>1 alerte</translation>
    </message>
    <message id="%1 alertes">
        <source></source>
        <translation>%1 alertes</translation>
    </message>
    <message id="Arrêter le journal des alertes et effacer ce qu'il contient ?">
        <source></source>
        <translation>Arrêter le journal des alertes et effacer ce qu&apos;il contient&#x202f;?</translation>
    </message>
    <message id="Arrêter et effacer">
        <source></source>
        <translation>Arrêter et effacer</translation>
    </message>
    <message id="Tenir un journal">
        <source></source>
        <translation>Tenir un journal</translation>
    </message>
    <message id="Non merci">
        <source></source>
        <translation>Non merci</translation>
    </message>
    <message id="Journal des alertes">
        <source></source>
        <translation>Journal des alertes</translation>
    </message>
    <message id="journal_offer">
        <source></source>
        <translation>Une ligne par alerte, gardée 90 jours sur cet ordinateur&#xa0;: date, durée, nombre de visages, caméra. Jamais une image ni le nom d&apos;une fenêtre.</translation>
    </message>
    <message id="14 derniers jours">
        <source></source>
        <translation>14 derniers jours</translation>
    </message>
    <message id="Heures de la journée">
        <source></source>
        <translation>Heures de la journée</translation>
    </message>
    <message id="Exporter…">
        <source></source>
        <translation>Exporter…</translation>
    </message>
    <message id="Effacer">
        <source></source>
        <translation>Effacer</translation>
    </message>
    <message id="aujourd'hui">
        <source></source>
        <translation>aujourd&apos;hui</translation>
    </message>
    <message id="%1 h">
        <source></source>
        <translation>%1&#xa0;h</translation>
    </message>
    <message id="de %1 h à %2 h">
        <source></source>
        <translation>de %1 h à %2 h</translation>
    </message>
    <message id="Effacer le journal des alertes ? Cette action est définitive.">
        <source></source>
        <translation>Effacer le journal des alertes&#x202f;? Cette action est définitive.</translation>
    </message>
    <message id="Exporter le journal des alertes">
        <source></source>
        <translation>Exporter le journal des alertes</translation>
    </message>
    <message id="Exporter">
        <source></source>
        <translation>Exporter</translation>
    </message>
    <message id="Dossier :">
        <source></source>
        <translation>Dossier&#xa0;:</translation>
    </message>
    <message id="Nom du fichier :">
        <source></source>
        <translation>Nom du fichier&#xa0;:</translation>
    </message>
    <message id="Type :">
        <source></source>
        <translation>Type&#xa0;:</translation>
    </message>
    <message id="alertes-sentrel.csv">
        <source></source>
        <translation>alertes-sentrel.csv</translation>
    </message>
    <message id="Exporté : %1">
        <source></source>
        <translation>Exporté&#xa0;: %1</translation>
    </message>
    <message id="%1 n'a pas pu être écrit.">
        <source></source>
        <translation>%1 n&apos;a pas pu être écrit.</translation>
    </message>
    <message id="Le journal des alertes est effacé aussi.">
        <source></source>
        <translation>Le journal des alertes est effacé aussi.</translation>
    </message>
    <message id="journal_hint">
        <source></source>
        <translation>Une ligne par alerte, 90 jours, sur cet ordinateur&#xa0;; jamais une image</translation>
    </message>
    <message id="Vérifier par vous-même…">
        <source></source>
        <translation>Vérifier par vous-même…</translation>
    </message>
    <message id="Le noyau filtre les appels de ce programme">
        <source></source>
        <translation>Le noyau filtre les appels de ce programme</translation>
    </message>
    <message id="Ce noyau ne filtre pas les appels de ce programme">
        <source></source>
        <translation>Ce noyau ne filtre pas les appels de ce programme</translation>
    </message>
    <message id="Une connexion au réseau est refusée">
        <source></source>
        <translation>Une connexion au réseau est refusée</translation>
    </message>
    <message id="Une connexion au réseau n'est pas refusée">
        <source></source>
        <translation>Une connexion au réseau n&apos;est pas refusée</translation>
    </message>
    <message id="Lancer un autre programme est refusé">
        <source></source>
        <translation>Lancer un autre programme est refusé</translation>
    </message>
    <message id="Lancer un autre programme n'est pas refusé">
        <source></source>
        <translation>Lancer un autre programme n&apos;est pas refusé</translation>
    </message>
    <message id="Un plantage n'écrit rien de la mémoire">
        <source></source>
        <translation>Un plantage n&apos;écrit rien de la mémoire</translation>
    </message>
    <message id="Un plantage pourrait écrire la mémoire">
        <source></source>
        <translation>Un plantage pourrait écrire la mémoire</translation>
    </message>
    <message id="Un fichier inattendu est ouvert en écriture">
        <source></source>
        <translation>Un fichier inattendu est ouvert en écriture</translation>
    </message>
    <message id="Aucun fichier n'est ouvert en écriture">
        <source></source>
        <translation>Aucun fichier n&apos;est ouvert en écriture</translation>
    </message>
    <message id="Ouverts en écriture : ses messages ou ses fichiers">
        <source></source>
        <translation>Ouverts en écriture&#xa0;: ses messages ou ses fichiers</translation>
    </message>
    <message id="La caméra est fermée">
        <source></source>
        <translation>La caméra est fermée</translation>
    </message>
    <message id="La caméra est ouverte depuis">
        <source></source>
        <translation>La caméra est ouverte depuis</translation>
    </message>
    <message id="Images de la caméra en mémoire">
        <source></source>
        <translation>Images de la caméra en mémoire</translation>
    </message>
    <message id="Images de la caméra restées en mémoire">
        <source></source>
        <translation>Images de la caméra restées en mémoire</translation>
    </message>
    <message id="Comptées là où elles sont réservées et rendues">
        <source></source>
        <translation>Comptées là où elles sont réservées et rendues</translation>
    </message>
    <message id="Gardé, pour vous seul : %1">
        <source></source>
        <translation>Gardé, pour vous seul&#xa0;: %1</translation>
    </message>
    <message id="Gardé, et lisible par d'autres : %1">
        <source></source>
        <translation>Gardé, et lisible par d&apos;autres&#xa0;: %1</translation>
    </message>
    <message id="n'affiche rien : aucun réseau">
        <source></source>
        <translation>n&apos;affiche rien&#xa0;: aucun réseau</translation>
    </message>
    <message id="montre tout ce qui est ouvert">
        <source></source>
        <translation>montre tout ce qui est ouvert</translation>
    </message>
    <message id="affiche 2 : un filtre">
        <source></source>
        <translation>affiche 2&#xa0;: un filtre</translation>
    </message>
    <message id="Depuis un terminal :">
        <source></source>
        <translation>Depuis un terminal&#xa0;:</translation>
    </message>
    <message id="Vérifié">
        <source></source>
        <translation>Vérifié</translation>
    </message>
    <message id="Échec">
        <source></source>
        <translation>Échec</translation>
    </message>
    <message id="privacy_intro">
        <source></source>
        <translation>Sentrel vient d&apos;essayer ce qu&apos;il dit ne pas pouvoir faire, et de relire ce qu&apos;il garde.</translation>
    </message>
    <message id="Vérifier par vous-même">
        <source></source>
        <translation>Vérifier par vous-même</translation>
    </message>
    <message id="Copier">
        <source></source>
        <translation>Copier</translation>
    </message>
    <message id="Copié">
        <source></source>
        <translation>Copié</translation>
    </message>
    <message id="doctor_program">
        <source></source>
        <translation>Programme</translation>
    </message>
    <message id="report_line">
        <source></source>
        <translation>%1 : %2</translation>
    </message>
    <message id="doctor_dark">
        <source></source>
        <translation>Témoins des écrans éteints</translation>
    </message>
    <message id="command_privacy">
        <source></source>
        <translation>fait essayer au programme ce qu&apos;il dit ne pas pouvoir faire</translation>
    </message>
    <message id="settings_kept">
        <source></source>
        <translation>Le fichier de réglages endommagé est conservé</translation>
    </message>
    <message id="settings_open">
        <source></source>
        <translation>Les réglages ne peuvent pas être fermés aux autres</translation>
    </message>
    <message id="settings_unsaved">
        <source></source>
        <translation>Les réglages ne peuvent pas être enregistrés</translation>
    </message>
    <message id="settings_late">
        <source></source>
        <translation>Les réglages n&apos;ont pas été enregistrés à temps</translation>
    </message>
    <message id="home_missing">
        <source></source>
        <translation>aucun dossier personnel</translation>
    </message>
    <message id="journal_unexported">
        <source></source>
        <translation>Le journal ne peut pas être exporté</translation>
    </message>
    <message id="lock_unconfirmed">
        <source></source>
        <translation>Le verrouillage a été demandé, mais rien ne l&apos;a confirmé en 60 s&#xa0;: la protection continue</translation>
    </message>
    <message id="consent_nobody_to_ask">
        <source></source>
        <translation>La caméra n&apos;est pas encore autorisée, et sans affichage personne ne peut le demander</translation>
    </message>
    <message id="running_opened">
        <source></source>
        <translation>Sentrel tourne déjà&#xa0;: sa fenêtre vient de s&apos;ouvrir</translation>
    </message>
    <message id="running_already">
        <source></source>
        <translation>Sentrel tourne déjà</translation>
    </message>
    <message id="error_no_session_bus">
        <source></source>
        <translation>Aucun bus de session&#xa0;: rien ne peut montrer ni commander la protection de l&apos;extérieur</translation>
    </message>
    <message id="error_display_lost">
        <source></source>
        <translation>L&apos;affichage a été perdu</translation>
    </message>
    <message id="error_no_call_filter">
        <source></source>
        <translation>Le noyau ne peut pas refuser les connexions réseau</translation>
    </message>
    <message id="error_core_dumps">
        <source></source>
        <translation>La mémoire ne peut pas être exclue des vidages</translation>
    </message>
    <message id="error_no_consent">
        <source></source>
        <translation>Caméra pas encore autorisée</translation>
    </message>
    <message id="advice_no_consent">
        <source></source>
        <translation>activez la protection, et Sentrel le demandera de nouveau</translation>
    </message>
    <message id="detail_no_frame">
        <source></source>
        <translation>aucune image n&apos;a été analysée</translation>
    </message>
    <message id="detail_camera_gone">
        <source></source>
        <translation>la caméra a disparu</translation>
    </message>
    <message id="detail_no_picture">
        <source></source>
        <translation>la caméra ne donne pas d&apos;image</translation>
    </message>
    <message id="onboarding_no_camera">
        <source></source>
        <translation>Aucune caméra trouvée. Branchez‑en une&#xa0;: Sentrel la verra aussitôt.</translation>
    </message>
    <message id="detail_model_missing">
        <source></source>
        <translation>fichier absent</translation>
    </message>
    <message id="detail_model_unreadable">
        <source></source>
        <translation>fichier illisible</translation>
    </message>
    <message id="detail_model_damaged">
        <source></source>
        <translation>fichier endommagé</translation>
    </message>
    <message id="detail_model_memory">
        <source></source>
        <translation>mémoire insuffisante</translation>
    </message>
</context>
</TS>
