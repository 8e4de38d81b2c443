#pragma once

#include <QString>

// What the panel, the pairing window and the tray say.
namespace orvel::texts {

class Text {
public:
    template <std::size_t size>
    constexpr Text(const char16_t (&literal)[size]) : view(literal, size - 1) {}
    operator QString() const { return view.toString(); }
    QString arg(const QString& value) const { return view.toString().arg(value); }
    friend QString operator+(Text text, const QString& more) { return text.view.toString() + more; }

private:
    QStringView view;
};

inline constexpr Text
    // Status
    starting = u"Başlatılıyor…",
    waiting = u"Telefon bekleniyor", connectedNear = u"bağlı",
    connectedFromAfar = u"internetten bağlı", disconnect = u"Bağlantıyı kes", failed = u"Hata: ",

    // A new phone
    enterCode = u"Telefonda bu kodu gir.", code = u"Eşleşme kodu: ",
    pairingTitle = u"Bir telefon bu Mac'e bağlanmak istiyor",
    pairingLine = u"Kodu telefona gir. Sen istemediysen reddet.",
    askingLine = u"Kodu doğru girdi ve izin bekliyor. Sen istemediysen reddet.", reject = u"Reddet",
    allow = u"İzin ver",

    // Permissions
    permissionsNeeded = u"Telefondan kullanmak için iki izin gerekiyor.",
    screenRecording = u"Ekran kaydı", screenRecordingWhy = u"Ekranı telefona göndermek için",
    accessibility = u"Erişilebilirlik", accessibilityWhy = u"Fare ve klavyeyi uygulamak için",
    granted = u"verildi", missing = u"eksik",

    // The way in from the internet
    internet = u"İnternetten erişim", on = u"Açık", standby = u"Onaylı", off = u"Kapalı",
    onMeans = u"Eşleşmiş telefonların bu Mac'e her yerden ulaşır.",
    standbyMeans =
        u"Aynı Wi-Fi'dan her zaman bağlanılır. Dışarıdan, telefonun Touch ID ya da "
        u"Face ID ile açana kadar kapalı kalır; açılınca bir saat sürer ve Mac'in haber "
        u"verir.",
    offMeans = u"Yalnızca aynı Wi-Fi. Bu Mac'e dışarıdan hiçbir şey ulaşamaz.",
    connecting = u"İnternete bağlanıyor…",
    unlockedUntil = u"Bir telefon uzaktan erişimi %1'e kadar açtı. Oturum bitince yeniden kapanır.",
    history = u"Uzaktan erişim geçmişi", noHistory = u"Henüz bir şey olmadı.",

    // Paired phones
    phones = u"Eşleşmiş telefonlar", pairedAt = u"Eşleşme: ", lastSeen = u"Son bağlantı: ",
    neverSeen = u"Henüz bağlanmadı", remove = u"Kaldır", removeOne = u"Kaldır: ",
    removeAll = u"Hepsini kaldır", cancel = u"Vazgeç", confirmOne = u"“%1” kaldırılsın mı?",
    confirmOneMeans =
        u"Kaldırılan telefon bağlıysa hemen kesilir; geri gelmesi için bu Mac'in "
        u"başında yeniden eşleşmesi gerekir.",
    confirmAll = u"Tüm telefonlar kaldırılsın mı?",
    noPhones =
        u"Telefonda Orvel'yi aç ve aynı Wi-Fi'da bu Mac'i seç. Kod burada ve ekranın "
        u"ortasında görünür; her eşleşmede yenisi üretilir.",

    // Settings
    settings = u"Ayarlar", keepAwake = u"Mac uykuya geçmesin",
    startAtLogin = u"Mac açılınca başlat",
    startAtLoginMeans = u"Mac yeniden başlarsa telefonun yine bağlanabilsin.",

    // New versions
    newVersion = u"Yeni sürüm hazır: ", install = u"Yükle",
    checkForUpdates = u"Güncellemeleri denetle…",
    checkAutomatically = u"Güncellemeleri kendiliğinden denetle",

    // The program
    about = u"Orvel Agent hakkında", quit = u"Çık", show = u"Orvel Agent'ı göster",
    program = u"Orvel Agent", version = u"Sürüm ",
    credits = u"iPhone'undan kendi Mac'ine, her yerden.", website = u"Web site",
    support = u"Destek", privacy = u"Gizlilik";

}  // namespace orvel::texts
