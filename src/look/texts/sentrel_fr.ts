<?xml version="1.0" encoding="utf-8"?>
<!-- SPDX-License-Identifier: Apache-2.0 -->
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
    <translation>Quelqu'un semble observer votre écran. L'affichage a été assombri.</translation>
  </message>
  <message id="onboarding_camera_title">
    <source></source>
    <translation>Autoriser la caméra</translation>
  </message>
  <message id="onboarding_camera_body">
    <source></source>
    <translation>Sentrel utilise la caméra pour repérer les regards par-dessus votre épaule. Les images sont analysées sur cet ordinateur : rien n'est enregistré, rien n'est envoyé.</translation>
  </message>
  <message id="onboarding_continue">
    <source></source>
    <translation>Continuer</translation>
  </message>
  <message id="onboarding_overlay_title">
    <source></source>
    <translation>Un filtre sur tout l'écran</translation>
  </message>
  <message id="onboarding_notif_title">
    <source></source>
    <translation>Recevoir les alertes</translation>
  </message>
  <message id="onboarding_notif_body">
    <source></source>
    <translation>Dès qu'un regard indiscret est détecté, Sentrel vous prévient par une notification sonore.</translation>
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
    <translation>Remettre tous les compteurs à zéro ? Cette action est définitive.</translation>
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
    <translation>Écarter les regards par-dessus l'épaule, sans filtre physique ni matériel supplémentaire.</translation>
  </message>
  <message id="about_privacy_title">
    <source></source>
    <translation>Votre vie privée</translation>
  </message>
  <message id="about_privacy_body">
    <source></source>
    <translation>L'image de la caméra est analysée sur cet ordinateur, puis oubliée. Rien n'est enregistré ni envoyé sur Internet.</translation>
  </message>
  <message id="shortcut_unavailable_hint">
    <source></source>
    <translation>Ce bureau ne permet pas de raccourci global : associez une touche à la commande indiquée dans le manuel.</translation>
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
    <translation>Service PipeWire introuvable : installez pipewire et wireplumber.</translation>
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
    <translation>fermez le programme qui l'utilise ; Sentrel la reprendra de lui-même</translation>
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
    <translation>Votre écran n'est pas protégé pour l'instant. Sentrel réessaie et vous protégera dès que la caméra répondra.</translation>
  </message>
  <message id="error_no_overlay">
    <source></source>
    <translation>Ce bureau ne permet pas de couvrir l'écran. Les alertes restent actives.</translation>
  </message>
  <message id="error_no_compositing">
    <source></source>
    <translation>Sans gestionnaire de composition, seules les alertes sont affichées.</translation>
  </message>
  <message id="error_settings_damaged">
    <source></source>
    <translation>Réglages endommagés : les valeurs lisibles ont été reprises, l'ancien fichier est conservé.</translation>
  </message>
  <message id="error_login_item">
    <source></source>
    <translation>Le lancement au démarrage n'a pas pu être modifié.</translation>
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
    <translation>Un raccourci du bureau, un script ou un autre programme l'a demandé.</translation>
  </message>
  <message id="link_copy">
    <source></source>
    <translation>Copier l'adresse</translation>
  </message>
  <message id="onboarding_camera_again">
    <source></source>
    <translation>La caméra n'est pas encore autorisée.</translation>
  </message>
  <message id="command_usage">
    <source></source>
    <translation>Utilisation : sentrel [OPTION]</translation>
  </message>
  <message id="command_none">
    <source></source>
    <translation>Sans option, sentrel protège l'écran ; s'il le fait déjà, sa fenêtre s'ouvre.</translation>
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
    <translation>« man sentrel » explique les réglages et ce que des scripts peuvent demander.</translation>
  </message>
  <message id="command_unknown">
    <source></source>
    <translation>argument inconnu : « %1 » ; « sentrel --help » dit ce qui existe.</translation>
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
</context>
</TS>
